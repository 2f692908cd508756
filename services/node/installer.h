#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "host/update/patch_format/patch_file.h"
#include "services/node/install_report.h"
#include "services/node/stage.h"

namespace kalo::node {

/// Writes the staged patch into the inactive slot and makes that slot the next boot's, step by
/// step. Until the last step nothing of what runs is touched: a failure or an end at any point
/// leaves the node at its old version, and the next installation starts from nothing.
class Installer {
 public:
  /// Runs the whole installation and reports it. The caller holds the install lock.
  /// @return whether the node may restart into the new version. When not, the report says "failed",
  ///         what and why.
  [[nodiscard]] bool Run();

 private:
  void Check();
  void WritePrograms();
  void Extract(const std::string& patch, const std::filesystem::path& folder);
  void AddSmallUpdate();
  void WriteConfiguration();
  void Enter(const char* step, std::int32_t percent);
  void Advance(std::int32_t percent);
  void Fail(const char* what, const std::string& why, int error_number);

  StagedPatch staged_;
  std::filesystem::path slot_;
  std::uint64_t payload_bytes_ = 0;    ///< of all that is staged
  std::uint64_t extracted_bytes_ = 0;  ///< of it, so far
  InstallReport report_;
};

}  // namespace kalo::node
