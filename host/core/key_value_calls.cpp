#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "host/core/key_value_file.h"
#include "host/core/key_value_line.h"
#include "host/core/key_value_text.h"
#include "platform/core/key_value.h"
#include "platform/paths.h"

namespace {

constexpr int kFailed = -1;
constexpr int kWritten = 1;
constexpr int kLastCheckFlag = 1;

int Fail(int error) {
  errno = error;
  return kFailed;
}

bool IsUsable(const char* path, const char* key) {
  return path != nullptr && key != nullptr && kalo::IsKey(key);
}

}  // namespace

int KLIBCFileGetKeyValue(const char* path, const char* key, char* buffer, std::size_t size,
                         int flags) {
  if (buffer == nullptr || size == 0) return Fail(EINVAL);
  buffer[0] = '\0';
  if (!IsUsable(path, key) || flags != 0) return Fail(EINVAL);
  const auto text = kalo::ReadKeyValueFile(path);
  if (!text) return kFailed;
  const auto value = text->Get(key);
  if (!value) return 0;
  if (value->size() > kalo::kMaxValueLength || value->size() >= size) return Fail(ERANGE);
  if (value->find('\0') != value->npos) return Fail(EINVAL);  // would look shorter than it is
  std::memcpy(buffer, value->c_str(), value->size() + 1);
  return static_cast<int>(value->size());
}

int KLIBCFileSetKeyValue(const char* path, const char* key, const char* value, int flags) {
  if (!IsUsable(path, key) || value == nullptr || flags != 0) return Fail(EINVAL);
  const std::string_view wanted = value;
  if (wanted.size() > kalo::kMaxValueLength) return Fail(ERANGE);
  const auto edit = kalo::KeyValueEdit::Begin(path);
  if (!edit) return kFailed;
  auto text = edit->Found().value_or(kalo::KeyValueText(""));
  if (text.Get(key) == wanted) return kWritten;
  if (!text.Set(key, wanted)) return Fail(EINVAL);
  return edit->Commit(text) ? kWritten : kFailed;
}

int KLIBCFileRemoveKey(const char* path, const char* key) {
  if (!IsUsable(path, key)) return Fail(EINVAL);
  const auto edit = kalo::KeyValueEdit::Begin(path);
  if (!edit) return kFailed;
  if (!edit->Found()) return Fail(edit->Absence());
  kalo::KeyValueText text = *edit->Found();
  if (!text.Remove(key)) return Fail(ENOENT);
  return edit->Commit(text) ? 0 : kFailed;
}

int KLIBCFileCheckKeyValue(const char* path, const char* key, const char* value, int flags) {
  const bool known_flags = flags >= 0 && flags <= kLastCheckFlag;
  if (!IsUsable(path, key) || value == nullptr || !known_flags) {
    errno = EINVAL;
    return 0;
  }
  const auto text = kalo::ReadKeyValueFile(path);
  return text && text->Get(key) == std::string_view(value) ? 1 : 0;
}

int KLIBCINFOSetKeyValue(const char* key, const char* value) {
  return KLIBCFileSetKeyValue(KALO::paths::kConfiguration, key, value, 0);
}
