#pragma once

#include <cstdint>
#include <string_view>

namespace kalo::feedd {

/// What a Range header asks of a file.
struct ByteRange {
  enum class Kind {
    kWhole,          ///< no range, or one that is passed over: more than one, or not understood
    kPart,           ///< `length` bytes from `first` on
    kUnsatisfiable,  ///< begins behind the end
  };
  Kind kind = Kind::kWhole;
  std::uint64_t first = 0;
  std::uint64_t length = 0;
};

/// @param header value of the Range header; empty when there is none
/// @param size   of the file
[[nodiscard]] ByteRange ParseByteRange(std::string_view header, std::uint64_t size);

}  // namespace kalo::feedd
