#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "host/update/patch_format/patch_file.h"

namespace kalo::box {

/// @param unique  the model
/// @param display "VXM 1.4.0-76010" or "VXM 1.4.0-76010 Update 3"
/// @throws std::runtime_error when the text has another form.
[[nodiscard]] patch::PatchDescription DescribeFirmware(const std::string& unique,
                                                       const std::string& display);

/// Writes a tree's VERSION.
/// @throws std::system_error, patch::PatchError
void PutVersion(const patch::PatchDescription& version, const std::filesystem::path& tree);

/// Makes the tree that a node runs as /usr/kalo from a build folder: stripped programs, libraries
/// and modules, the box's "reboot", VERSION, and random bytes that fill it up to a size.
/// @param folder made; must not exist
/// @param fill_to bytes; a larger tree stays as it is
/// @throws std::runtime_error, std::system_error
void MakeFirmwareTree(const std::filesystem::path& build, const patch::PatchDescription& version,
                      std::uint64_t fill_to, const std::filesystem::path& folder);

}  // namespace kalo::box
