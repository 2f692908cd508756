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

// Changes the file while it says "downloading", under the lock of its writers: the word cannot
// change between the look and the write.
bool EditWhileDownloading(const std::string& path,
                          const std::function<void(KeyValueText&)>& change) {
  const auto edit = KeyValueEdit::Begin(path);
  if (!edit) {
    Log(LOG_ERR, "%s: %s", path.c_str(), std::strerror(errno));
    return false;
  }
  if (!edit->Found() || edit->Found()->Get(kStep) != kDownloading) return true;
  KeyValueText text = *edit->Found();
  change(text);
  if (edit->Commit(text)) return true;
  Log(LOG_ERR, "%s: %s", path.c_str(), std::strerror(errno));
  return false;
}

}  // namespace

DownloadProgress::DownloadProgress() : path_(KALO::paths::kDownloadProgress) {}

bool DownloadProgress::IsWanted() const {
  std::array<char, 64> step{};
  return KLIBCFileGetKeyValue(path_.c_str(), kStep, step.data(), step.size(), 0) > 0 &&
         std::strcmp(step.data(), kDownloading) == 0;
}

void DownloadProgress::SetPercent(int percent) const {
  (void)EditWhileDownloading(
      path_, [&](KeyValueText& text) { (void)text.Set(kPercent, std::to_string(percent)); });
}

void DownloadProgress::SetNeededBytes(std::uint64_t bytes) const {
  (void)EditWhileDownloading(
      path_, [&](KeyValueText& text) { (void)text.Set("need_bytes", std::to_string(bytes)); });
}

void DownloadProgress::Finish() const {
  (void)EditWhileDownloading(path_, [](KeyValueText& text) {
    (void)text.Set(kStep, "finished");
    (void)text.Set(kPercent, "100");
  });
}

bool DownloadProgress::Cancel() const {
  return EditWhileDownloading(path_, [](KeyValueText& text) {
    (void)text.Set(kStep, "canceled");
    (void)text.Set(kPercent, "0");
  });
}

}  // namespace kalo::download
