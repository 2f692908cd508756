#pragma once

#include <json/value.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace kalo::meshd {

/// A JSON text that is not what it must be; what() says where and why.
class BadJson : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads one JSON document.
/// @throws BadJson
[[nodiscard]] Json::Value ParseDocument(const std::string& text);

// Members that must be there with the right type; every one throws BadJson otherwise.
[[nodiscard]] const Json::Value& MemberOf(const Json::Value& object, const char* key);
[[nodiscard]] std::string TextOf(const Json::Value& object, const char* key);
[[nodiscard]] bool BooleanOf(const Json::Value& object, const char* key);
[[nodiscard]] std::int32_t IntegerOf(const Json::Value& object, const char* key);
/// @param limit the largest value allowed
[[nodiscard]] std::uint32_t NumberOf(const Json::Value& object, const char* key,
                                     std::uint32_t limit);

}  // namespace kalo::meshd
