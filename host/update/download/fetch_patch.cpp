#include "host/update/download/fetch_patch.h"

#include <sys/statvfs.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>

#include "host/core/log.h"
#include "host/update/feed/feed_client.h"
#include "host/update/patch_format/patch_head.h"
#include "platform/paths.h"

namespace kalo::download {
namespace {

using Cause = DownloadError::Cause;

constexpr int kTries = 3;
constexpr int kPauseFactor = 3;
constexpr std::uint64_t kSlowBytesPerSecond = std::uint64_t{64} << 10;
constexpr std::chrono::milliseconds kLook{200};
constexpr std::uint64_t kSpare = std::uint64_t{1} << 20;  // for the file system itself
constexpr long kTooMany = 429;
constexpr long kRangeNotSatisfiable = 416;
constexpr long kServerErrors = 500;

class PatchFetch {
 public:
  PatchFetch(const feed::Release& release, const std::string& path, const TransferHooks& hooks,
             const FetchPatience& patience)
      : file_(release.file),
        url_(feed::BaseAddress() + "/" + release.file.path),
        hooks_(hooks),
        patience_(patience),
        part_(path + ".part", release.file.size, hooks) {}

  PartFile& Run() {
    std::chrono::milliseconds pause = patience_.first_pause;
    for (int attempt = 1;; ++attempt) {
      const std::string trouble = Try();
      if (trouble.empty()) return part_;
      Log(LOG_WARNING, "download, try %d: %s: %s", attempt, url_.c_str(), trouble.c_str());
      if (attempt == kTries) throw DownloadError(last_cause_, url_ + ": " + trouble);
      Wait(pause);
      pause *= kPauseFactor;
    }
  }

 private:
  // @return what went wrong and may go right the next time; empty when the file is complete.
  std::string Try() {
    const FetchResult result = HttpsGet(part_.Rest(url_), Limits(), part_);
    switch (result.outcome) {
      case FetchOutcome::kOk:
        return CheckContents();
      case FetchOutcome::kCancelled:
        throw DownloadError(Cause::kCancelled, "cancelled");
      case FetchOutcome::kCannotStore:
        if (part_.IsForeign()) {
          Drop();
          last_cause_ = Cause::kServer;
          return "the server does not go on where it left off";
        }
        throw DownloadError(part_.LacksSpace() ? Cause::kNoSpace : Cause::kStorage,
                            url_ + ": cannot be stored");
      case FetchOutcome::kTooLarge:
        throw DownloadError(Cause::kContents, url_ + ": larger than the list says");
      case FetchOutcome::kUntrusted:
        throw DownloadError(Cause::kServer, url_ + ": " + result.error);
      case FetchOutcome::kRefused:
        return TakeRefusal(result);
      case FetchOutcome::kUnreachable:
      case FetchOutcome::kTimeout:
        break;
    }
    last_cause_ = Cause::kServer;
    return result.error;
  }

  std::string TakeRefusal(const FetchResult& result) {
    if (result.status == kRangeNotSatisfiable) {
      Drop();  // the server has other contents than those that we have a part of
    } else if (result.status < kServerErrors && result.status != kTooMany) {
      throw DownloadError(Cause::kServer, url_ + ": " + result.error);
    }
    last_cause_ = Cause::kServer;
    return result.error;
  }

  std::string CheckContents() {
    last_cause_ = Cause::kContents;
    if (part_.Size() < file_.size) {
      Drop();
      return "shorter than the list says";
    }
    if (part_.TakeHash() == file_.sha256) return "";
    Drop();
    return "not the contents that the list names";
  }

  void Drop() {
    if (!part_.StartAnew()) throw DownloadError(Cause::kStorage, url_ + ": cannot be stored");
  }

  [[nodiscard]] HttpsLimits Limits() const {
    HttpsLimits limits;
    limits.connect = patience_.connect;
    limits.stall = patience_.stall;
    limits.slowest = patience_.slowest;
    limits.whole = patience_.whole_extra + std::chrono::seconds(file_.size / kSlowBytesPerSecond);
    limits.bytes = file_.size;
    limits.is_cancelled = hooks_.is_cancelled;
    return limits;
  }

  void Wait(std::chrono::milliseconds pause) const {
    const auto end = std::chrono::steady_clock::now() + pause;
    while (std::chrono::steady_clock::now() < end) {
      if (hooks_.is_cancelled()) throw DownloadError(Cause::kCancelled, "cancelled");
      std::this_thread::sleep_for(std::min(kLook, pause));
    }
  }

  const feed::ListedFile& file_;
  std::string url_;
  const TransferHooks& hooks_;
  const FetchPatience& patience_;
  PartFile part_;
  Cause last_cause_ = Cause::kServer;
};

// The signed list vouches for the whole file by its hash; the patch's own signature must hold too,
// and name what was asked for.
void CheckHead(const std::string& unique, const feed::Release& release, const std::string& part) {
  const auto keys = patch::KeyRing::Load(KALO::paths::kPatchKeys);
  try {
    const patch::PatchDescription found = patch::ReadSignedHead(part, keys);
    if (found.unique == unique && found.version == release.version) return;
    throw DownloadError(Cause::kContents,
                        release.file.path + ": is " + found.version + " for " + found.unique);
  } catch (const patch::PatchError& e) {
    throw DownloadError(Cause::kContents, release.file.path + ": " + e.what());
  }
}

// Fails before the first byte if the file does not fit: space is mostly short from the start.
void CheckSpace(const std::string& folder, std::uint64_t size) {
  struct statvfs found {};
  if (statvfs(folder.c_str(), &found) != 0) {
    throw DownloadError(Cause::kStorage, folder + ": " + std::generic_category().message(errno));
  }
  const std::uint64_t free = static_cast<std::uint64_t>(found.f_bavail) * found.f_frsize;
  if (free < size + kSpare) throw DownloadError(Cause::kNoSpace, folder + " is full");
}

feed::Release FindListed(const PatchTarget& target, const Cancellation& is_cancelled) {
  feed::FetchBudget budget;
  budget.is_cancelled = is_cancelled;
  const auto list = feed::FetchReleaseList(target.unique, budget);
  if (is_cancelled()) throw DownloadError(Cause::kCancelled, "cancelled");
  const std::string name = target.version + " for " + target.unique;
  const feed::Release* release = list ? feed::FindRelease(*list, target.version) : nullptr;
  if (release == nullptr) {
    throw DownloadError(Cause::kServer, name + " is not in the maker's list");
  }
  if (target.by_rollout && !feed::Reaches(*release, feed::ThisRouter())) {
    throw DownloadError(Cause::kServer, name + " is not released for this router");
  }
  return *release;
}

}  // namespace

std::string FetchListedPatch(const PatchTarget& target, const TransferHooks& hooks) {
  if (hooks.is_cancelled()) throw DownloadError(Cause::kCancelled, "cancelled");
  const feed::Release release = FindListed(target, hooks.is_cancelled);
  std::string path = target.folder + "/" + target.unique + "_" +
                     feed::PureVersion(release.version).value_or("") + ".pat";
  try {
    CheckSpace(target.folder, release.file.size);
    FetchPatch(target.unique, release, path, hooks);
  } catch (const DownloadError& e) {
    if (e.GetCause() != Cause::kNoSpace) throw;
    throw DownloadError(Cause::kNoSpace, e.what(), release.file.size + kSpare);
  }
  return path;
}

void FetchPatch(const std::string& unique, const feed::Release& release, const std::string& path,
                const TransferHooks& hooks, const FetchPatience& patience) {
  try {
    if (hooks.is_cancelled()) throw DownloadError(Cause::kCancelled, "cancelled");
    PatchFetch fetch(release, path, hooks, patience);
    PartFile& part = fetch.Run();
    CheckHead(unique, release, path + ".part");
    if (!part.Keep(path, release.file.sha256)) {
      throw DownloadError(Cause::kCancelled, "cancelled");
    }
  } catch (const std::system_error& e) {
    throw DownloadError(Cause::kStorage, e.what());
  }
}

}  // namespace kalo::download
