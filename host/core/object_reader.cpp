#include "host/core/object_reader.h"

#include <cerrno>
#include <cstddef>
#include <system_error>
#include <utility>

#include "host/core/file_io.h"
#include "host/core/strict_json.h"

namespace kalo {
namespace {

constexpr std::size_t kLargestFile = std::size_t{1} << 20;

}  // namespace

ObjectReader::ObjectReader(const Json::Value& value, std::string name)
    : value_(value), name_(std::move(name)) {
  if (!value_.isObject()) throw FormatError(name_ + ": not a JSON object");
}

void ObjectReader::Fail(const std::string& key, const std::string& cause) const {
  throw FormatError(name_ + ": " + (key.empty() ? "" : "\"" + key + "\" ") + cause);
}

const Json::Value* ObjectReader::Find(const std::string& key) {
  known_.insert(key);
  return value_.isMember(key) ? &value_[key] : nullptr;
}

std::string ObjectReader::Text(const std::string& key, const std::optional<std::string>& fallback) {
  const Json::Value* member = Find(key);
  if (member == nullptr && fallback) return *fallback;
  if (member == nullptr) Fail(key, "is missing");
  if (!member->isString()) Fail(key, "must be a text");
  return member->asString();
}

int ObjectReader::Integer(const std::string& key, int lowest, int highest,
                          std::optional<int> fallback) {
  if (Find(key) == nullptr && fallback) return *fallback;
  return static_cast<int>(LargeInteger(key, lowest, highest));
}

std::int64_t ObjectReader::LargeInteger(const std::string& key, std::int64_t lowest,
                                        std::int64_t highest) {
  const Json::Value* member = Find(key);
  if (member == nullptr) Fail(key, "is missing");
  const bool whole = member->type() == Json::intValue || member->type() == Json::uintValue;
  if (!whole || !member->isInt64() || member->asInt64() < lowest || member->asInt64() > highest) {
    Fail(key, "must be a number from " + std::to_string(lowest) + " to " + std::to_string(highest));
  }
  return member->asInt64();
}

bool ObjectReader::Boolean(const std::string& key, bool fallback) {
  const Json::Value* member = Find(key);
  if (member == nullptr) return fallback;
  if (!member->isBool()) Fail(key, "must be true or false");
  return member->asBool();
}

const Json::Value& ObjectReader::Array(const std::string& key) {
  const Json::Value* member = Find(key);
  if (member == nullptr) Fail(key, "is missing");
  if (!member->isArray()) Fail(key, "must be a list");
  return *member;
}

const Json::Value& ObjectReader::Object(const std::string& key) {
  static const Json::Value kEmpty(Json::objectValue);
  const Json::Value* member = Find(key);
  if (member == nullptr) return kEmpty;
  if (!member->isObject()) Fail(key, "must be an object");
  return *member;
}

void ObjectReader::Finish() const {
  for (const std::string& key : value_.getMemberNames()) {
    if (!known_.contains(key)) Fail(key, "is not known here");
  }
}

Json::Value ParseJsonText(const std::string& text, const std::string& name) {
  std::optional<Json::Value> value = ParseStrictJson(text);
  if (!value) throw FormatError(name + ": not well-formed JSON");
  return std::move(*value);
}

Json::Value ReadJsonFile(const std::string& path) {
  const std::optional<std::string> text = ReadFile(path, kLargestFile);
  if (!text) throw FormatError(path + ": " + std::generic_category().message(errno));
  return ParseJsonText(*text, path);
}

}  // namespace kalo
