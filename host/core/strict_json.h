#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <string_view>

namespace kalo {

/// @return whether the text is well-formed UTF-8 (no overlong forms, no surrogates).
[[nodiscard]] bool IsUtf8(std::string_view text);

/// Parses JSON that came from outside: one object or array, well-formed UTF-8, no
/// doubled keys, nothing behind it, at most 64 levels deep. Never throws on bad text.
/// @return empty for anything else.
[[nodiscard]] std::optional<Json::Value> ParseStrictJson(std::string_view text);

/// @return the value as one line of ASCII JSON; bytes that are no UTF-8 become U+FFFD.
[[nodiscard]] std::string WriteJson(const Json::Value& value);

}  // namespace kalo
