#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "host/core/unique_fd.h"

namespace kalo {

/// The file with which a program says that it runs, and that it runs once. Its process holds a
/// record lock on it, which ends with the process however that ends and is no child's: so a number
/// that a dead process left behind is never taken for a living one.
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

  /// @return the process that holds the file's lock and has written its own number there; 0 when
  ///         there is none, or when others than root can write the file; negative with errno set
  ///         when the file is missing or cannot be opened.
  [[nodiscard]] static pid_t Running(const std::string& path);

 private:
  PidFile(std::string path, UniqueFd fd) : path_(std::move(path)), fd_(std::move(fd)) {}

  std::string path_;
  UniqueFd fd_;
};

}  // namespace kalo
