#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "host/core/unique_fd.h"

namespace kalo {

/// The file with which a program says that it runs, and that it runs once: its process holds a
/// record lock on it, which ends with the process however that ends and is not a child's.
class PidFile {
 public:
  /// Writes this process's number. The folder must be root's alone.
  /// @return empty with errno set: EWOULDBLOCK when another process runs already.
  [[nodiscard]] static std::optional<PidFile> TryTake(const std::string& path);

  PidFile(const PidFile&) = delete;
  PidFile& operator=(const PidFile&) = delete;
  PidFile(PidFile&&) noexcept = default;
  PidFile& operator=(PidFile&&) = delete;
  /// Removes the file.
  ~PidFile();

  /// Reads a file that this class or any other program wrote. A number that a dead process left
  /// behind is never taken for a process that got it later: the process must hold the lock or have
  /// started before the file was written.
  /// @return the process; 0 when there is none, or when the file is another user's or writable by
  ///         others; negative with errno set when the file is missing or cannot be opened.
  [[nodiscard]] static pid_t Running(const std::string& path);

 private:
  PidFile(std::string path, UniqueFd fd) : path_(std::move(path)), fd_(std::move(fd)) {}

  std::string path_;
  UniqueFd fd_;
};

}  // namespace kalo
