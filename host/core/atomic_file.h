#pragma once

#include <sys/types.h>

#include <string_view>

#include "host/core/file_place.h"

namespace kalo {

/// WriteFileAtomic for a place that is open already.
/// @param mode permission bits, whatever the umask is
/// @return false with errno set on failure; the old file then is as it was, and no temporary file
///         is left.
[[nodiscard]] bool ReplaceFile(const FilePlace& place, std::string_view contents, mode_t mode);

/// Overwrites a small file of ours in place, which takes no space: for when ReplaceFile failed with
/// ENOSPC. Only on a tmpfs, where no file survives a power loss anyway. A reader may see the new
/// contents with empty lines after them.
/// @return false with errno set to ENOSPC when this is not possible; the file then is as it was.
[[nodiscard]] bool OverwriteWithinPage(const FilePlace& place, std::string_view contents,
                                       mode_t mode);

}  // namespace kalo
