#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace kalo::test {

inline constexpr std::size_t kTarBlock = 512;

/// What a tar header says, everything about it free.
struct TarFields {
  std::string name;
  std::string prefix;
  std::string link;
  std::string owner;  ///< user's name
  std::string magic;
  char type = '0';
  unsigned mode = 0;
  unsigned uid = 0;
  unsigned gid = 0;
  std::uint64_t size = 0;
};

/// @return the header with its right checksum, one block. Every field must fit.
[[nodiscard]] std::string TarHeader(const TarFields& fields);

/// Puts the right checksum into a header of one block.
void PutChecksum(std::span<char> header);

/// @return the number in octal digits, with zeros before it.
[[nodiscard]] std::string Octal(std::uint64_t number, std::size_t digits);

/// @return size rounded up to whole tar blocks.
[[nodiscard]] constexpr std::uint64_t WholeTarBlocks(std::uint64_t size) {
  return (size + kTarBlock - 1) / kTarBlock * kTarBlock;
}

}  // namespace kalo::test
