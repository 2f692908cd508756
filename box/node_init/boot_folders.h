#pragma once

#include <filesystem>

namespace kalo::box {

/// Removes what a folder holds, but neither the folder nor anything below another mount.
void EmptyFolder(const std::filesystem::path& folder);

/// What a boot finds: /tmp and /run empty, the folders in them that exist from boot made.
/// @throws std::filesystem::filesystem_error when a folder cannot be made.
void MakeBootFolders();

/// Draws the id of this boot and writes it to /run/boot_id. (The kernel's own is the machine's and
/// the same in every box.)
/// @return 32 hexadecimal characters.
/// @throws std::system_error
std::string WriteBootId();

}  // namespace kalo::box
