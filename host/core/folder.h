#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace kalo {

/// Removes all that a folder holds, and keeps the folder. Never follows a symbolic link, never
/// leaves the file system; what is mounted in the folder stays.
/// @return false with errno set when something could not be removed, the rest then is gone all the
///         same; ENOENT when there is no folder.
[[nodiscard]] bool RemoveContents(const std::string& folder);

/// RemoveContents for a folder that is open already.
[[nodiscard]] bool RemoveContentsAt(int folder);

/// @return what the files in a folder and below add up to, as far as they can be seen; links are
///         not followed. 0 when there is no folder.
[[nodiscard]] std::uint64_t BytesIn(const std::filesystem::path& folder);

}  // namespace kalo
