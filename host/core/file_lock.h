#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "host/core/unique_fd.h"

namespace kalo {

/// Holds an exclusive lock on a lock file (the same kind as KLIBCFileLockByFile takes) until it is
/// destroyed. The file is never removed.
class FileLock {
 public:
  /// Does not wait. Creates the file (0600), never follows a link. What another user put at the
  /// path is replaced, whatever it is; so is a file with several names where others may add names.
  /// @return empty with errno set when it is busy (EWOULDBLOCK) or cannot be opened: ELOOP for a
  ///         link of ours, EINVAL for anything else but a regular file, EPERM in a folder where
  ///         others may replace the file.
  [[nodiscard]] static std::optional<FileLock> TryTake(const std::string& path);

  /// As TryTake, but waits for a busy lock.
  /// @param patience longest wait
  /// @return empty with errno ETIMEDOUT when it stayed busy.
  [[nodiscard]] static std::optional<FileLock> TakeWithin(const std::string& path,
                                                          std::chrono::milliseconds patience);

  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  FileLock(FileLock&&) noexcept = default;
  FileLock& operator=(FileLock&& other) noexcept;
  ~FileLock() { Unlock(); }

  /// @return the descriptor, which the lock goes on owning.
  [[nodiscard]] int Fd() const { return fd_.Get(); }
  /// Gives the held lock away with its descriptor; KLIBCFileUnlockByFile ends it.
  [[nodiscard]] int Release() { return fd_.Release(); }

 private:
  explicit FileLock(UniqueFd fd) : fd_(std::move(fd)) {}
  void Unlock();

  UniqueFd fd_;
};

}  // namespace kalo
