#pragma once

#include <string>
#include <string_view>

namespace kalo::webapid {

/// @return the SHA-256 of the text as 64 lower-case hexadecimal characters.
[[nodiscard]] std::string Sha256Hex(std::string_view text);

/// Compares two texts of equal length in a time that does not tell where they differ.
[[nodiscard]] bool EqualInConstantTime(std::string_view a, std::string_view b);

}  // namespace kalo::webapid
