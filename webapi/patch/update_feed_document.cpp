// The document of the version-2 update feed. It is not signed: it can only offer.

#include "webapi/patch/update_feed_document.h"

#include <json/reader.h>
#include <json/value.h>
#include <syslog.h>

#include <cstddef>
#include <exception>
#include <fstream>
#include <sstream>

#include "webapi/log.h"
#include "webapi/patch/promotion.h"

namespace KALO::MESH::Webapi {
namespace {

// Far above any real document, far below what would hurt a router.
constexpr std::size_t kLargestDocument = std::size_t{1} << 20;

bool Parse(std::istream& stream, Json::Value& document) {
  std::string text(kLargestDocument + 1, '\0');
  stream.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(stream.gcount()));
  if (text.size() > kLargestDocument) return false;
  // As the feed has always been read: what stands behind the document is not looked at.
  Json::CharReaderBuilder builder;
  builder["allowTrailingCommas"] = false;
  builder["skipBom"] = false;
  std::istringstream source(text);
  try {
    return Json::parseFromStream(builder, source, &document, nullptr);
  } catch (const std::exception&) {
    return false;  // nested too deep
  }
}

bool Read(const std::string& path, Json::Value& document) {
  std::ifstream stream(path);
  if (!stream.is_open()) {
    Log(LOG_ERR, __LINE__, "Failed to open RSS V2 file: %s", path.c_str());
    return false;
  }
  if (!Parse(stream, document)) {
    Log(LOG_ERR, __LINE__, "Failed to parse RSS V2 JSON");
    return false;
  }
  return true;
}

// JsonCpp throws when it is asked for a member of anything but an object.
bool HasMember(const Json::Value& value, const char* name) {
  return value.isObject() && value.isMember(name);
}

// @return the document's first item, the only one that counts; null when there is none.
const Json::Value* FirstItem(const Json::Value& document) {
  if (!HasMember(document, "channel") || !HasMember(document["channel"], "item")) {
    Log(LOG_ERR, __LINE__, "RSS V2 JSON format error: missing channel or item");
    return nullptr;
  }
  const Json::Value& items = document["channel"]["item"];
  if (!items.isArray() || items.empty()) {
    Log(LOG_DEBUG, __LINE__, "No update available from RSS V2 (empty item list)");
    return nullptr;
  }
  return &items[0];
}

bool IsUsable(const Json::Value& item) {
  // The model must be named, but the server that was asked for it is trusted to have looked.
  for (const char* name : {"title", "BuildNum", "phase", "model"}) {
    if (HasMember(item, name)) continue;
    Log(LOG_ERR, __LINE__, "RSS V2 item missing required fields");
    return false;
  }
  if (!item["title"].isString()) {
    Log(LOG_ERR, __LINE__, "RSS V2 item missing required fields");
    return false;
  }
  const Json::Value& build = item["BuildNum"];
  if (!build.isInt()) {
    Log(LOG_ERR, __LINE__, "RSS V2 item is invalid BuildNum");
    return false;
  }
  if (!IsPromotion(build.asInt())) {
    Log(LOG_ERR, __LINE__, "RSS V2 item is invalid or smaller than 1.4 version: %d", build.asInt());
    return false;
  }
  return true;
}

}  // namespace

std::optional<FeedOffer> ReadFeedDocument(const std::string& path) {
  Json::Value document;
  if (!Read(path, document)) return std::nullopt;
  const Json::Value* item = FirstItem(document);
  if (item == nullptr || !IsUsable(*item)) return std::nullopt;
  const Json::Value& phase = (*item)["phase"];
  return FeedOffer{(*item)["title"].asString(), phase.isString() && phase == "Beta"};
}

}  // namespace KALO::MESH::Webapi
