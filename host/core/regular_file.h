#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <string>

#include "host/core/unique_fd.h"

namespace kalo {

/// A regular file open for reading.
struct RegularFile {
  UniqueFd fd;
  struct stat status = {};

  /// Never follows a link in the last component, never hangs on a FIFO.
  /// @param folder folder in which a relative path starts, or AT_FDCWD
  /// @return empty with errno set: ELOOP for a link, EINVAL for anything else but a regular file,
  ///         or what open(2) says.
  [[nodiscard]] static std::optional<RegularFile> Open(int folder, const std::string& path);

  /// @return whether it belongs to root or to the user that this process acts as.
  [[nodiscard]] bool IsOurs() const;

  /// @param limit a larger file is refused (EFBIG)
  /// @return the whole contents; empty with errno set on failure.
  [[nodiscard]] std::optional<std::string> ReadAll(std::size_t limit) const;
};

}  // namespace kalo
