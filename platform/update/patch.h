#pragma once

#include <cstdint>
#include <string>

namespace KALO::MESH::SDK::Upgrade {

/// What a patch file says of itself. Without `valid` nothing else means anything.
struct PatchInfo {
  bool valid = false;  ///< the file is a patch and its signature holds
  std::string path;
  std::string version;  ///< display form, "VXM 1.4.0-76010"
  std::string unique;   ///< the model that it is for
  std::int32_t build_num = 0;
  std::int32_t nano_num = 0;
};

class Patch {
 public:
  /// Reads and verifies a patch file in full: every member against the signed manifest. A file
  /// that does not verify, or that others than root can write, is removed.
  /// @return the record; not valid for anything but a patch that verifies.
  /// @throws std::exception when a file that must go cannot be removed, and when file or keys
  ///         cannot be read although they are there: then the file stays.
  static PatchInfo ParsePatchInfo(const std::string& path);
};

}  // namespace KALO::MESH::SDK::Upgrade
