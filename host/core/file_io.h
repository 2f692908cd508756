#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kalo {

/// Reads a whole regular file. Never follows a link, never hangs on a FIFO.
/// @param limit larger files are refused (EFBIG)
/// @return empty with errno set on failure.
[[nodiscard]] std::optional<std::string> ReadFile(const std::string& path, std::size_t limit);

/// Tells the errno of a failed ReadFile: whether there is nothing that could be read, also later:
/// no file, none of the regular kind, one that is too large. Otherwise it may well be read the next
/// time, and who would replace it must not.
[[nodiscard]] bool IsNothingThere(int error);

/// Replaces a file whole: temporary file in the same folder, fsync unless it lies on a tmpfs,
/// rename. On failure the old file is as it was.
/// @return false with errno set on failure.
[[nodiscard]] bool WriteFileAtomic(const std::string& path, std::string_view contents, mode_t mode);

/// Writes all of it, whatever a signal or a slow reader cuts it into.
/// @return false with errno set on failure; part of it may have been written.
[[nodiscard]] bool WriteAll(int fd, std::string_view contents);

/// @return bytes of kernel randomness as lower-case hexadecimal text, twice as many characters.
[[nodiscard]] std::string RandomHex(std::size_t bytes);

}  // namespace kalo
