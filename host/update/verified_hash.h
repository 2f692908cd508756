#pragma once

#include <optional>
#include <string>

namespace kalo {

/// Notes on a file that it was verified in whole, with the SHA-256 that it then had. The note is an
/// extended attribute: it goes where the file goes, ends with it, and outlives the process that
/// made it. Only who may write the file can note anything.
/// @param sha256 64 hexadecimal digits
/// @return false with errno where the file system keeps no attributes: nothing depends on the note.
bool NoteVerifiedHash(int fd, const std::string& sha256);

/// @return what was noted; empty when nothing was.
[[nodiscard]] std::optional<std::string> NotedHash(int fd);

}  // namespace kalo
