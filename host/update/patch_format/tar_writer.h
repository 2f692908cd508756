#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "host/update/patch_format/manifest.h"
#include "host/update/patch_format/tar_header.h"

namespace kalo::patch {

/// Writes what TarReader reads. Methods throw PatchError (kCannotWrite).
class TarWriter {
 public:
  /// @param fd an empty file; stays the caller's
  explicit TarWriter(int fd) : fd_(fd) {}

  /// Begins a file, after those of its folders that no file before it needed. Exactly `size` bytes
  /// are to follow by Write().
  void BeginFile(const std::string& name, std::uint64_t size, mode_t mode);
  void Write(std::span<const char> bytes);
  /// Writes the archive's end.
  void Finish();

 private:
  void WriteHeader(const TarMember& member);
  void EndFile();
  void Put(std::string_view bytes);

  int fd_;
  FolderOrder folders_;
  std::string name_;
  std::uint64_t missing_ = 0;  ///< how much of the current file's data is still to come
  std::uint64_t written_ = 0;
};

}  // namespace kalo::patch
