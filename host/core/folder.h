#pragma once

#include <string>

namespace kalo {

/// Removes all that a folder holds, and keeps the folder. Never follows a symbolic link, never
/// leaves the file system; what is mounted in the folder stays.
/// @return false with errno set when something could not be removed, the rest then is gone all the
///         same; ENOENT when there is no folder.
[[nodiscard]] bool RemoveContents(const std::string& folder);

}  // namespace kalo
