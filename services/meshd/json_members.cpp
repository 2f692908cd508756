#include "services/meshd/json_members.h"

#include <optional>
#include <utility>

#include "host/core/strict_json.h"

namespace kalo::meshd {
namespace {

BadJson Wrong(const char* key, const char* what) {
  return BadJson("\"" + std::string(key) + "\" " + what);
}

}  // namespace

Json::Value ParseDocument(const std::string& text) {
  std::optional<Json::Value> root = ParseStrictJson(text);
  if (!root) throw BadJson("no JSON document");
  return std::move(*root);
}

const Json::Value& MemberOf(const Json::Value& object, const char* key) {
  if (!object.isObject()) throw Wrong(key, "is asked of something that is no object");
  if (!object.isMember(key)) throw Wrong(key, "is missing");
  return object[key];
}

std::string TextOf(const Json::Value& object, const char* key) {
  const Json::Value& value = MemberOf(object, key);
  if (!value.isString()) throw Wrong(key, "is no text");
  return value.asString();
}

bool BooleanOf(const Json::Value& object, const char* key) {
  const Json::Value& value = MemberOf(object, key);
  if (!value.isBool()) throw Wrong(key, "is no boolean");
  return value.asBool();
}

std::int32_t IntegerOf(const Json::Value& object, const char* key) {
  const Json::Value& value = MemberOf(object, key);
  if (!value.isInt()) throw Wrong(key, "is no 32-bit integer");
  return value.asInt();
}

std::uint32_t NumberOf(const Json::Value& object, const char* key, std::uint32_t limit) {
  const Json::Value& value = MemberOf(object, key);
  if (!value.isUInt() || value.asUInt() > limit) throw Wrong(key, "is no number in range");
  return value.asUInt();
}

}  // namespace kalo::meshd
