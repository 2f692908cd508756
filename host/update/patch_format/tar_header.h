#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace kalo::patch {

inline constexpr std::uint64_t kTarBlock = 512;
/// A patch ends with two blocks of zeros.
inline constexpr std::uint64_t kTarEnd = 2 * kTarBlock;

using TarHeader = std::array<char, kTarBlock>;

/// A regular file or a folder of root's.
struct TarMember {
  std::string name;  ///< a folder's without the slash at the end
  bool is_folder = false;
  std::uint64_t size = 0;
  mode_t mode = 0;
};

/// Returns the one header that a patch may have for this member, in ustar form.
/// @return empty when the name, size or mode does not fit into one.
[[nodiscard]] std::optional<TarHeader> MakeTarHeader(const TarMember& member);

/// Reads a header.
/// @return empty when the header is not, byte for byte, what MakeTarHeader returns for the member.
[[nodiscard]] std::optional<TarMember> ReadTarHeader(const TarHeader& header);

/// @return size rounded up to whole blocks.
[[nodiscard]] constexpr std::uint64_t WholeTarBlocks(std::uint64_t size) {
  return (size + kTarBlock - 1) / kTarBlock * kTarBlock;
}

}  // namespace kalo::patch
