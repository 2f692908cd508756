#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "host/update/download/part_file.h"
#include "host/update/feed/release_list.h"

namespace kalo::download {

/// Why a patch could not be fetched.
class DownloadError : public std::runtime_error {
 public:
  enum class Cause {
    kCancelled,
    kNoSpace,
    kServer,    ///< it does not answer, or not with the patch
    kContents,  ///< what came is not what the list names
    kStorage,   ///< the file cannot be written
  };

  DownloadError(Cause cause, const std::string& what, std::uint64_t needed_bytes = 0)
      : std::runtime_error(what), cause_(cause), needed_bytes_(needed_bytes) {}
  [[nodiscard]] Cause GetCause() const { return cause_; }
  /// @return free bytes that the download needs; 0 unless space is lacking.
  [[nodiscard]] std::uint64_t GetNeededBytes() const { return needed_bytes_; }

 private:
  Cause cause_;
  std::uint64_t needed_bytes_;
};

/// How patient a download is.
struct FetchPatience {
  std::chrono::milliseconds connect{15000};
  std::chrono::milliseconds stall{30000};
  std::uint64_t slowest = std::uint64_t{30} << 10;  ///< bytes that must come in each `stall`
  std::chrono::milliseconds whole_extra{60000};     ///< besides a second for each 64 KiB
  std::chrono::milliseconds first_pause{1000};  ///< before a second try; then three times as long
};

/// Which patch of the feed is fetched, and where to.
struct PatchTarget {
  std::string unique;
  std::string version;
  std::string folder;
  /// Whether the list must release it to this router. False for a version that the mesh runs
  /// already: its rollout has reached this router, whatever became of it since.
  bool by_rollout = true;
};

/// Fetches a patch by its entry in the model's signed list, which is fetched first.
/// @return the file, named after model and pure version.
/// @throws DownloadError; no half of the file is left then.
[[nodiscard]] std::string FetchListedPatch(const PatchTarget& target, const TransferHooks& hooks);

/// Fetches one patch of the feed: in three tries, each going on where the one before broke off;
/// hashed while it is written; its signature checked before it gets its name.
/// @param unique  the model that it must be for
/// @param release what the signed list says of it
/// @param path    what the file is named in the end
/// @throws DownloadError; no half of the file is left then.
void FetchPatch(const std::string& unique, const feed::Release& release, const std::string& path,
                const TransferHooks& hooks, const FetchPatience& patience = {});

}  // namespace kalo::download
