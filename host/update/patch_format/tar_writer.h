#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <set>
#include <span>
#include <string>

struct archive;

namespace kalo::patch {

/// Writes members in ustar form, owner 0:0, without a time. Methods throw PatchError
/// (kCannotWrite).
class TarWriter {
 public:
  /// @param fd stays the caller's
  explicit TarWriter(int fd);

  /// Begins a file, after those of its folders that no file before it needed. Exactly `size` bytes
  /// are to follow by Write().
  void BeginFile(const std::string& name, std::uint64_t size, mode_t mode);
  void Write(std::span<const char> bytes);
  /// Writes the archive's end.
  void Finish();

 private:
  struct Deleter {
    void operator()(archive* writer) const;
  };
  void WriteHeader(const std::string& name, unsigned int type, std::uint64_t size, mode_t mode);
  [[noreturn]] void Fail(const std::string& name) const;

  std::unique_ptr<archive, Deleter> archive_;
  std::set<std::string> folders_;
  std::string name_;
};

}  // namespace kalo::patch
