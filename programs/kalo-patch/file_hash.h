#pragma once

#include <filesystem>
#include <string>

namespace kalo::patch_tool {

/// @return the SHA-256 of a file's contents, in lower-case hexadecimal.
/// @throws std::runtime_error when it cannot be read.
[[nodiscard]] std::string HashOf(const std::filesystem::path& path);

}  // namespace kalo::patch_tool
