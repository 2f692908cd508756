#pragma once

#include <filesystem>
#include <string_view>

namespace kalo::box {

/// Writes a file of a mesh that is being made, with the folders above it.
/// @param mode 0600 for what holds a secret
/// @throws std::system_error
void PutFile(const std::filesystem::path& path, std::string_view contents, unsigned mode = 0644);

}  // namespace kalo::box
