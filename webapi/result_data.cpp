#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

// JsonCpp throws for a text where it is asked for a boolean.
bool IsTrue(const Json::Value& value) {
  return (value.isBool() || value.isNumeric()) && value.asBool();
}

}  // namespace

bool UpgradeHandler::GetDataFromResult(const Json::Value& result, Json::Value& data, int& node_id) {
  if (!result.isObject() || !result.isMember("success") || !IsTrue(result["success"])) return false;
  if (!result.isMember("data") || !result.isMember("node_id")) return false;
  if (!result["node_id"].isInt()) return false;
  data = result["data"];
  node_id = result["node_id"].asInt();
  return true;
}

}  // namespace KALO::MESH::Webapi
