#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "host/core/file_lock.h"
#include "host/core/file_place.h"
#include "host/core/key_value_text.h"

namespace kalo {

inline constexpr std::size_t kMaxKeyValueFile = 256UL * 1024;
/// How long a writer waits for the other writers of a file.
inline constexpr std::chrono::seconds kWriterPatience{5};

/// Reads a key=value file without a lock.
/// @return empty with errno set: ENOENT, or refused: ELOOP for a link, EACCES for another user's
///         file, EINVAL for anything else but a regular file, EFBIG.
[[nodiscard]] std::optional<KeyValueText> ReadKeyValueFile(const std::string& path);

/// One change of a key=value file, from reading to replacing, under the lock of its writers.
class KeyValueEdit {
 public:
  /// Waits for other writers at most five seconds (ETIMEDOUT). What is not ours at the path (a
  /// link, another user's file, a FIFO) counts as an empty file; text is empty when there is none.
  /// @return empty with errno set on failure.
  [[nodiscard]] static std::optional<KeyValueEdit> Begin(const std::string& path);

  /// @return the text found; empty when there is no file of ours.
  [[nodiscard]] const std::optional<KeyValueText>& Found() const { return found_; }

  /// Replaces the file. An older file of ours keeps its permissions, but never others' to write. In
  /// a full tmpfs a small file is overwritten in place.
  /// @return false with errno set (EFBIG: the text is too long); the file then is as it was.
  [[nodiscard]] bool Commit(const KeyValueText& text) const;

  /// @return the error number with which a file of ours was not there: ENOENT, ELOOP, EACCES or
  ///         EINVAL; 0 when it was.
  [[nodiscard]] int Absence() const { return absence_; }

 private:
  KeyValueEdit(FilePlace place, FileLock lock) : place_(std::move(place)), lock_(std::move(lock)) {}
  [[nodiscard]] bool Read();

  FilePlace place_;
  FileLock lock_;
  std::optional<KeyValueText> found_;
  int absence_ = 0;
  mode_t mode_ = 0600;
};

}  // namespace kalo
