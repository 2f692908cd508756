#include "host/update/feed/version_two.h"

#include <json/value.h>
#include <syslog.h>

#include "host/core/log.h"
#include "host/core/strict_json.h"

namespace kalo::feed {
namespace {

constexpr Json::ArrayIndex kMostItems = 20;  // each dropped one makes a log line
constexpr std::size_t kLongestTitle = 64;

std::optional<OfferedItem> ReadItem(const Json::Value& value) {
  if (!value.isObject()) return std::nullopt;
  for (const char* text : {"title", "phase", "model"}) {
    if (!value[text].isString()) return std::nullopt;
  }
  if (!value["BuildNum"].isInt()) return std::nullopt;
  return OfferedItem{value["title"].asString(), value["BuildNum"].asInt(),
                     value["phase"].asString(), value["model"].asString()};
}

// What is wrong with an item; empty if the list vouches for it.
std::string Objection(const OfferedItem& item, const Release* release, const ReleaseList& list,
                      std::int32_t build, const Audience& audience) {
  if (item.model != list.unique) return "is for another model";
  if (release == nullptr || release->version != item.title || release->build != item.build) {
    return "is not in the signed list";
  }
  if (release->phase != item.phase) return "has another phase in the signed list";
  if (!Reaches(*release, audience)) return "is not released for this router";
  if (!IsVersionTwoOffer(list, build, *release, audience)) {
    return "is not the next step from build " + std::to_string(build);
  }
  return "";
}

}  // namespace

std::string VersionTwoDocument(const std::vector<const Release*>& offers,
                               const std::string& unique) {
  Json::Value root(Json::objectValue);
  Json::Value& items = root["channel"]["item"] = Json::Value(Json::arrayValue);
  for (const Release* offer : offers) {
    Json::Value item(Json::objectValue);
    item["title"] = offer->version;
    item["BuildNum"] = offer->build;
    item["phase"] = offer->phase;
    item["model"] = unique;
    item["size"] = static_cast<Json::UInt64>(offer->file.size);
    items.append(item);
  }
  return root.toStyledString();
}

std::optional<std::vector<OfferedItem>> ReadVersionTwoDocument(const std::string& text) {
  const std::optional<Json::Value> root = ParseStrictJson(text);
  if (!root || !root->isObject() || !(*root)["channel"].isObject()) return std::nullopt;
  const Json::Value& values = (*root)["channel"]["item"];
  if (!values.isArray()) return std::nullopt;
  std::vector<OfferedItem> items;
  for (Json::ArrayIndex i = 0; i < values.size() && i < kMostItems; ++i) {
    if (auto item = ReadItem(values[i])) items.push_back(std::move(*item));
  }
  return items;
}

std::vector<const Release*> VouchedOffers(const std::vector<OfferedItem>& items,
                                          const ReleaseList& list, std::int32_t build,
                                          const Audience& audience) {
  std::vector<const Release*> offers;
  for (const OfferedItem& item : items) {
    const Release* release = FindRelease(list, item.title);
    const std::string objection = Objection(item, release, list, build, audience);
    if (objection.empty()) {
      offers.push_back(release);
    } else {
      Log(LOG_WARNING, "update feed: offer %s for %s dropped: it %s",
          WriteJson(item.title.substr(0, kLongestTitle)).c_str(), list.unique.c_str(),
          objection.c_str());
    }
  }
  return offers;
}

}  // namespace kalo::feed
