#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "host/update/patch_format/tar_header.h"

namespace kalo::patch {

/// Reads a tar file of which every byte but a member's data is determined by the members' names,
/// sizes and modes: headers as MakeTarHeader makes them, zeros as padding, one length. So two files
/// with the same members are the same file. Every method throws PatchError.
class TarReader {
 public:
  /// @param fd a regular file; stays the caller's
  explicit TarReader(int fd) : fd_(fd) {}

  /// Goes to the next member.
  /// @return empty at the archive's end.
  [[nodiscard]] std::optional<TarMember> Next();

  /// Reads on in the member's data.
  /// @return how many bytes; 0 at the member's end.
  [[nodiscard]] std::size_t Read(std::span<char> buffer);

 private:
  [[nodiscard]] std::size_t ReadAt(std::uint64_t place, std::span<char> buffer) const;
  void CheckZeros(std::uint64_t begin, std::uint64_t end) const;
  void CheckEnd() const;

  int fd_;
  std::uint64_t place_ = 0;     ///< up to where the current member's data was read
  std::uint64_t data_end_ = 0;  ///< where the current member's data ends
};

}  // namespace kalo::patch
