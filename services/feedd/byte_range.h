#pragma once

#include <cstdint>
#include <string_view>

namespace kalo::feedd {

/// What a Range header asks of a file.
struct ByteRange {
  enum class Kind {
    kWhole,          ///< no range of bytes, or more than one, which is passed over
    kPart,           ///< `length` bytes from `first` on
    kUnsatisfiable,  ///< begins behind the end, or cannot be read
  };
  Kind kind = Kind::kWhole;
  std::uint64_t first = 0;
  std::uint64_t length = 0;
};

/// @param header value of the Range header; empty when there is none
/// @param size   of the file
[[nodiscard]] ByteRange ParseByteRange(std::string_view header, std::uint64_t size);

}  // namespace kalo::feedd
