#pragma once

#include <json/value.h>

#include <string>

namespace fake {

/// @return the value on one line without blanks; members stand in alphabetical order.
[[nodiscard]] std::string ToText(const Json::Value& value);

/// @return the value that such a text stands for.
[[nodiscard]] Json::Value FromText(const std::string& text);

}  // namespace fake
