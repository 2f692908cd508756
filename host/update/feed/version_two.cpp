#include "host/update/feed/version_two.h"

#include <json/value.h>

namespace kalo::feed {

std::string VersionTwoDocument(const Release* offer, const std::string& unique) {
  Json::Value root(Json::objectValue);
  Json::Value& items = root["channel"]["item"] = Json::Value(Json::arrayValue);
  if (offer != nullptr) {
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

}  // namespace kalo::feed
