#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "platform/core/key_value.h"

namespace KALO::MESH::Webapi {

/// What a read of one key gave. Callers differ on purpose in which lengths count as failure, and go
/// by the length alone.
struct KeyValue {
  int length;        ///< the platform's result: > 0, 0 (absent or empty), negative (error)
  std::string text;  ///< empty unless the length is positive
};

inline constexpr std::size_t kValueSize = 8192;

/// @tparam kSize the buffer given to the platform; a longer value is an error, never cut
template <std::size_t kSize = kValueSize>
KeyValue ReadKeyValue(const char* path, const char* key) {
  std::array<char, kSize> buffer;  // a length above 0 promises an end of the text
  const int length = KLIBCFileGetKeyValue(path, key, buffer.data(), buffer.size(), 0);
  return {length, length > 0 ? std::string(buffer.data()) : std::string()};
}

}  // namespace KALO::MESH::Webapi
