#include "platform/update/group_update.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>

#include "host/core/log.h"
#include "host/update/download/download_progress.h"
#include "host/update/download/fetch_patch.h"
#include "host/update/feed/release_list.h"
#include "host/update/transfer_note.h"

namespace KALO::MESH::SDK::Upgrade {
namespace {

using kalo::download::DownloadError;
using kalo::download::DownloadProgress;
using kalo::feed::PureVersion;

constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20;
constexpr int kWhole = 100;

}  // namespace

bool GroupUpdate::ConvertVersion(const std::string& version, std::string& pure) const {
  std::optional<std::string> form = PureVersion(version);
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
    return done_ < total_ || DownloadProgress().Finish();
  } catch (const DownloadError& e) {
    kalo::Log(LOG_ERR, "download: %s", e.what());
    return false;
  }
}

void GroupUpdate::Fetch(const std::string& folder, Target& target) {
  const DownloadProgress progress;
  kalo::TransferNote note("download-" + target.unique);
  std::uint64_t size = 0;
  const kalo::download::TransferHooks hooks{[&] { return !progress.IsWanted(); },
                                            [&](std::uint64_t bytes, std::uint64_t whole) {
                                              size = whole;
                                              note.Moved(bytes, whole);
                                              ShowPercent(bytes, whole);
                                            }};
  try {
    target.path = kalo::download::FetchListedPatch({target.unique, target.version, folder}, hooks);
  } catch (const DownloadError& e) {
    if (e.GetNeededBytes() > 0) progress.SetNeededBytes(e.GetNeededBytes());
    throw;
  }
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
    return candidate.unique == unique && PureVersion(candidate.version) == pure_version;
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
