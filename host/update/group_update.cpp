#include "platform/update/group_update.h"

#include <sys/statvfs.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>

#include "host/core/log.h"
#include "host/update/download/download_progress.h"
#include "host/update/download/fetch_patch.h"
#include "host/update/feed/feed_client.h"
#include "host/update/patch_format/version_text.h"
#include "host/update/transfer_note.h"

namespace KALO::MESH::SDK::Upgrade {
namespace {

using kalo::download::DownloadError;
using kalo::download::DownloadProgress;
using kalo::feed::Release;

constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20;
// The file system's own needs beside the file.
constexpr std::uint64_t kSpare = kMebibyte;
constexpr int kWhole = 100;

// "76010" of a full version, "9346-2" of a small update.
std::optional<std::string> PureForm(const std::string& version) {
  const auto numbers = kalo::patch::ParseVersionText(version);
  if (!numbers) return std::nullopt;
  const std::string build = std::to_string(numbers->build);
  return kalo::feed::NamesSmallUpdate(version) ? build + "-" + std::to_string(numbers->nano)
                                               : build;
}

// Free space is looked at before the first byte: most often it is then that it is short.
void CheckSpace(const std::string& folder, std::uint64_t size) {
  struct statvfs found {};
  if (statvfs(folder.c_str(), &found) != 0) {
    throw DownloadError(DownloadError::Cause::kStorage,
                        folder + ": " + std::generic_category().message(errno));
  }
  const std::uint64_t free = static_cast<std::uint64_t>(found.f_bavail) * found.f_frsize;
  if (free < size + kSpare)
    throw DownloadError(DownloadError::Cause::kNoSpace, folder + " is full");
}

}  // namespace

bool GroupUpdate::ConvertVersion(const std::string& version, std::string& pure) const {
  std::optional<std::string> form = PureForm(version);
  if (!form) return false;
  pure = std::move(*form);
  return true;
}

void GroupUpdate::AppendTarget(const std::string& unique, const std::string& version) {
  targets_.push_back({unique, version, ""});
}

void GroupUpdate::SetJobStatus(std::int32_t total, std::int32_t done, std::int32_t fetched_mib,
                               std::int32_t percent) {
  total_ = total;
  done_ = done;
  fetched_mib_ = fetched_mib;
  percent_ = percent;
}

void GroupUpdate::GetJobStatus(std::int32_t& total, std::int32_t& done, std::int32_t& fetched_mib,
                               std::int32_t& percent) const {
  total = total_;
  done = done_;
  fetched_mib = fetched_mib_;
  percent = percent_;
}

bool GroupUpdate::Download(const std::string& folder, bool is_auto, bool promotion) {
  try {
    for (Target& target : targets_) {
      kalo::Log(LOG_NOTICE, "download%s%s: %s for %s", is_auto ? ", automatic" : "",
                promotion ? ", promotion" : "", target.version.c_str(), target.unique.c_str());
      Fetch(folder, target);
      ++done_;
      ShowPercent(0, 1);
    }
    if (done_ >= total_) DownloadProgress().Finish();
    return true;
  } catch (const DownloadError& e) {
    kalo::Log(LOG_ERR, "download: %s", e.what());
    return false;
  }
}

void GroupUpdate::Fetch(const std::string& folder, Target& target) {
  const DownloadProgress progress;
  const auto list = kalo::feed::FetchReleaseList(target.unique);
  const Release* release = list ? kalo::feed::FindRelease(*list, target.version) : nullptr;
  if (release == nullptr) {
    throw DownloadError(DownloadError::Cause::kServer,
                        target.version + " for " + target.unique + " is not in the maker's list");
  }
  const std::uint64_t size = release->file.size;
  kalo::TransferNote note("download-" + target.unique);
  const kalo::download::TransferHooks hooks{[&] { return progress.IsWanted(); },
                                            [&](std::uint64_t bytes) {
                                              note.Moved(bytes, size);
                                              ShowPercent(bytes, size);
                                            }};
  const std::string path =
      folder + "/" + target.unique + "_" + PureForm(release->version).value_or("") + ".pat";
  try {
    CheckSpace(folder, size);
    kalo::download::FetchPatch(target.unique, *release, path, hooks);
  } catch (const DownloadError& e) {
    if (e.GetCause() == DownloadError::Cause::kNoSpace) progress.SetNeededBytes(size + kSpare);
    throw;
  }
  target.path = path;
  fetched_mib_ += static_cast<std::int32_t>(size / kMebibyte);
}

// The file is written only when the whole percentage rises: it is read five times a second.
void GroupUpdate::ShowPercent(std::uint64_t bytes, std::uint64_t size) {
  if (total_ <= 0) return;
  const auto of_group = static_cast<std::int32_t>(bytes * kWhole / size);
  const std::int32_t percent = std::min((done_ * kWhole + of_group) / total_, kWhole);
  if (percent <= percent_) return;
  percent_ = percent;
  DownloadProgress().SetPercent(percent);
}

bool GroupUpdate::GetPatchPath(const std::string& unique, const std::string& pure_version,
                               std::string& path) const {
  const auto target = std::find_if(targets_.begin(), targets_.end(), [&](const Target& candidate) {
    return candidate.unique == unique && PureForm(candidate.version) == pure_version;
  });
  if (target == targets_.end() || target->path.empty()) return false;
  path = target->path;
  return true;
}

bool GroupUpdate::PatchClean(const std::string& folder) {
  bool clean = true;
  for (Target& target : targets_) {
    if (!target.path.starts_with(folder + "/")) continue;
    if (unlink(target.path.c_str()) != 0 && errno != ENOENT) {
      kalo::Log(LOG_ERR, "%s: %s", target.path.c_str(),
                std::generic_category().message(errno).c_str());
      clean = false;
      continue;
    }
    target.path.clear();
  }
  return clean;
}

bool GroupUpdate::CancelDownload() {
  return DownloadProgress().Cancel();
}

}  // namespace KALO::MESH::SDK::Upgrade
