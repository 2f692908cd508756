#include <iostream>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/mesh_view.h"
#include "programs/kalo-mesh/terminal.h"

namespace kalo::cli {
namespace {

bool IsTrue(const Json::Value& data, const char* key) {
  return data.isObject() && data[key].isBool() && data[key].asBool();
}

std::string Sentence(const Json::Value& data) {
  if (IsTrue(data, "promotion")) {
    return Printable(TextOf(data, "promotion_version")) + " is available: a new major release" +
           (IsTrue(data, "beta_version") ? ", still in its beta phase." : ".");
  }
  if (IsTrue(data, "available")) {
    const bool small = TextOf(data, "type") == "smallupdate";
    return Printable(TextOf(data, "version")) + " is available" +
           (small ? ": a small update." : ": a full update.");
  }
  if (IsTrue(data, "over_version")) {
    return "A node runs a newer version than the maker offers. There is nothing to update to.";
  }
  return "Every node is up to date.";
}

}  // namespace

int RunCheck(const CommonOptions& common, const CheckOptions& options) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  Json::Value params(Json::objectValue);
  params["auto"] = options.is_auto;
  const Json::Value data =
      client.Call("KALO.Mesh.Upgrade.Patch", 2, "check", params, ApiClient::kLongPatience);
  std::cout << (common.json ? WriteJson(data) : Sentence(data)) << "\n";
  return kOk;
}

}  // namespace kalo::cli
