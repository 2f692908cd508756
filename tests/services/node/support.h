#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "host/update/patch_format/patch_writer.h"
#include "host/update/patch_format/signing_key.h"

namespace kalo::node {

inline constexpr const char* kModel = "kalo_m1";
inline constexpr const char* kRunning = "VXM 1.4.0-76000";
inline constexpr const char* kNext = "VXM 1.4.0-76010";

/// A node in this private root: two slots, the first with a firmware that runs, its configuration
/// and the maker's key. Every test gets a fresh one.
class NodeTest : public ::testing::Test {
 protected:
  void SetUp() override;

  /// Makes a patch with a server in it.
  /// @return its path, a file that only root can write.
  std::string MakePatch(const std::string& version, const std::string& unique = kModel,
                        int build = 76010) const;
  /// Makes a small update that brings one file.
  std::string MakeSmallPatch(const std::string& version, int build, int nano) const;

  /// Shows a slot as the running firmware, as a boot does, with the given boot id.
  static void Boot();

  patch::SigningKey key_ = patch::SigningKey::Generate();
};

void WriteText(const std::filesystem::path& path, const std::string& text);
std::string ReadText(const std::filesystem::path& path);

}  // namespace kalo::node
