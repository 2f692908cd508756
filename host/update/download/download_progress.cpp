#include "host/update/download/download_progress.h"

#include <syslog.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <functional>

#include "host/core/key_value_file.h"
#include "host/core/log.h"
#include "platform/core/key_value.h"
#include "platform/paths.h"

namespace kalo::download {
namespace {

constexpr const char* kStep = "step";
constexpr const char* kPercent = "percent";
constexpr const char* kDownloading = "downloading";

enum class Edit { kDone, kNotDownloading, kFailed };

// Changes the file while it says "downloading", under the lock of its writers: the word cannot
// change between the look and the write.
Edit EditWhileDownloading(const std::string& path,
                          const std::function<void(KeyValueText&)>& change) {
  const auto edit = KeyValueEdit::Begin(path);
  if (edit && (!edit->Found() || edit->Found()->Get(kStep) != kDownloading)) {
    return Edit::kNotDownloading;
  }
  if (edit) {
    KeyValueText text = *edit->Found();
    change(text);
    if (edit->Commit(text)) return Edit::kDone;
  }
  Log(LOG_ERR, "%s: %s", path.c_str(), std::strerror(errno));
  return Edit::kFailed;
}

}  // namespace

DownloadProgress::DownloadProgress() : path_(KALO::paths::kDownloadProgress) {}

bool DownloadProgress::IsWanted() const {
  std::array<char, 64> step{};
  return KLIBCFileGetKeyValue(path_.c_str(), kStep, step.data(), step.size(), 0) > 0 &&
         std::strcmp(step.data(), kDownloading) == 0;
}

bool DownloadProgress::IsCancelled() const {
  const auto text = ReadKeyValueFile(path_);
  return text && text->Get(kStep) == "canceled" && text->Get("version");
}

void DownloadProgress::SetPercent(int percent) const {
  (void)EditWhileDownloading(
      path_, [&](KeyValueText& text) { (void)text.Set(kPercent, std::to_string(percent)); });
}

void DownloadProgress::SetNeededBytes(std::uint64_t bytes) const {
  (void)EditWhileDownloading(
      path_, [&](KeyValueText& text) { (void)text.Set("need_bytes", std::to_string(bytes)); });
}

bool DownloadProgress::Finish() const {
  const Edit edit = EditWhileDownloading(path_, [](KeyValueText& text) {
    (void)text.Set(kStep, "finished");
    (void)text.Set(kPercent, "100");
  });
  return edit == Edit::kDone;
}

bool DownloadProgress::Cancel() const {
  const Edit edit = EditWhileDownloading(path_, [](KeyValueText& text) {
    (void)text.Set(kStep, "canceled");
    (void)text.Set(kPercent, "0");
  });
  return edit != Edit::kFailed;
}

}  // namespace kalo::download
