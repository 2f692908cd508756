#pragma once

#include <json/value.h>

#include <string>

namespace kalo::cli {

/// @return seconds since 1970 as local time, to the minute; empty when it is no number.
[[nodiscard]] std::string TimeText(const Json::Value& value);

}  // namespace kalo::cli
