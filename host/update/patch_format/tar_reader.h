#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

struct archive;

namespace kalo::patch {

/// A member as its header shows it.
struct TarMember {
  std::string name;  ///< a folder's without the slash at the end
  bool is_folder = false;
  std::uint64_t size = 0;
  mode_t mode = 0;
};

/// Reads a tar file more strictly than an unpacker would: plain ustar headers only, regular files
/// and folders only, owner 0:0, no byte that is not part of a member, zeros where the form says
/// zeros. Every method throws PatchError.
class TarReader {
 public:
  /// @param fd a regular file read from its beginning; stays the caller's
  explicit TarReader(int fd);

  /// Goes to the next member.
  /// @return empty at the archive's end, behind which nothing but zeros stands.
  [[nodiscard]] std::optional<TarMember> Next();

  /// Reads on in the member's data.
  /// @return how many bytes; 0 at the member's end.
  [[nodiscard]] std::size_t Read(std::span<char> buffer);

 private:
  struct Deleter {
    void operator()(archive* reader) const;
  };
  [[noreturn]] void FailReading(const std::string& doing) const;
  void CheckHeader(std::uint64_t place) const;
  void CheckZeros(std::uint64_t begin, std::uint64_t end) const;
  void CheckEnd() const;

  int fd_;
  std::unique_ptr<archive, Deleter> archive_;
  std::uint64_t data_end_ = 0;  ///< where the current member's data ends
  std::uint64_t next_ = 0;      ///< where the next header begins
};

}  // namespace kalo::patch
