#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace KALO::MESH::SDK::Upgrade {

/// Downloads the patch of one model group. The job counters span all groups of one download: they
/// are set before each group's download and read back after it.
class GroupUpdate {
 public:
  GroupUpdate() = default;

  /// @param version a version text in any form the records and feeds carry
  /// @param pure    receives the pure version number form: "76010", "9346-2" for a small update
  /// @return false when the text is no version; pure is untouched then.
  bool ConvertVersion(const std::string& version, std::string& pure) const;

  /// Names a model and the version to fetch for it.
  void AppendTarget(const std::string& unique, const std::string& version);

  /// @param total       groups of the whole download
  /// @param done        groups that are done
  /// @param fetched_mib mebibytes fetched for them
  /// @param percent     percentage shown last, which never falls
  void SetJobStatus(std::int32_t total, std::int32_t done, std::int32_t fetched_mib,
                    std::int32_t percent);
  void GetJobStatus(std::int32_t& total, std::int32_t& done, std::int32_t& fetched_mib,
                    std::int32_t& percent) const;

  /// Downloads what the signed list releases to this router into the folder and keeps the
  /// percentage in "/tmp/mesh_download", which says "finished" when the last group is done. Runs
  /// only as long as that file says "downloading". When there is too little space, the file tells
  /// under "need_bytes" how much is needed.
  /// @param is_auto   false in every call of this module
  /// @param promotion whether promotion releases are wanted
  /// @return false when it could not run, failed or was cancelled.
  bool Download(const std::string& folder, bool is_auto, bool promotion);

  /// @param path receives the downloaded file's path
  /// @return false when this model and version were not downloaded.
  bool GetPatchPath(const std::string& unique, const std::string& pure_version,
                    std::string& path) const;

  /// Removes the downloaded patch from the folder.
  bool PatchClean(const std::string& folder);

  /// Stops a running download of any GroupUpdate, in whatever process it runs.
  /// @return false on failure; true when nothing runs.
  bool CancelDownload();

 private:
  struct Target {
    std::string unique;
    std::string version;
    std::string path;  ///< of the downloaded file; empty when there is none
  };

  void Fetch(const std::string& folder, Target& target);
  void ShowPercent(std::uint64_t bytes, std::uint64_t size);

  std::vector<Target> targets_;
  std::int32_t total_ = 0;
  std::int32_t done_ = 0;
  std::int32_t fetched_mib_ = 0;
  std::int32_t percent_ = 0;
};

}  // namespace KALO::MESH::SDK::Upgrade
