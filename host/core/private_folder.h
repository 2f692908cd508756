#pragma once

#include <sys/types.h>

#include <string>

#include "host/core/file_place.h"
#include "host/core/unique_fd.h"

namespace kalo {

/// Puts a new empty folder (0700) at a path, whatever lay there before. Safe in a place like /tmp,
/// where everyone may add files: the folder is made under a name that others cannot reach and put
/// in place in one step.
/// @return false with errno set: EPERM where others may replace files that are ours.
[[nodiscard]] bool MakePrivateFolder(const std::string& path);

/// Opens a folder that MakePrivateFolder made.
/// @return empty with errno set: EACCES or EPERM when others could have filled or replaced it,
///         ENOTDIR or ELOOP for anything else but a folder.
[[nodiscard]] UniqueFd OpenPrivateFolder(const std::string& path);

/// Puts a new empty file (0600) at a place, whatever lay there before, as MakePrivateFolder does.
/// @return the file, open for reading and writing; empty with errno set.
[[nodiscard]] UniqueFd MakePrivateFile(const FilePlace& place);

}  // namespace kalo
