#include "services/meshd/strict_json.h"

#include <json/reader.h>

#include <memory>

namespace kalo::meshd {
namespace {

constexpr int kStackLimit = 16;

BadJson Wrong(const char* key, const char* what) {
  return BadJson("\"" + std::string(key) + "\" " + what);
}

}  // namespace

Json::Value ParseStrictJson(const std::string& text) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["failIfExtra"] = true;
  builder["stackLimit"] = kStackLimit;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value root;
  std::string errors;
  bool parsed = false;
  try {
    parsed = reader->parse(text.data(), text.data() + text.size(), &root, &errors);
  } catch (const Json::Exception& e) {  // the nesting is too deep
    errors = e.what();
  }
  if (!parsed) throw BadJson("no JSON document: " + errors);
  return root;
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
