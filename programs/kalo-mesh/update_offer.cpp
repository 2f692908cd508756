#include "programs/kalo-mesh/update_offer.h"

#include "programs/kalo-mesh/mesh_view.h"
#include "programs/kalo-mesh/terminal.h"

namespace kalo::cli {

Json::Value CheckForUpdate(ApiClient& client, bool is_auto) {
  Json::Value params(Json::objectValue);
  params["auto"] = is_auto;
  return client.Call("KALO.Mesh.Upgrade.Patch", 2, "check", params, ApiClient::kLongPatience);
}

UpdateOffer ReadOffer(const Json::Value& data) {
  UpdateOffer offer;
  offer.promotion = IsTrue(data, "promotion");
  offer.available = offer.promotion || IsTrue(data, "available");
  offer.beta = IsTrue(data, "beta_version");
  offer.over_version = IsTrue(data, "over_version");
  offer.version = TextOf(data, offer.promotion ? "promotion_version" : "version");
  offer.type = TextOf(data, "type");
  return offer;
}

std::string UpdateOffer::Sentence() const {
  const std::string what = Printable(version) + " is available";
  if (promotion)
    return what + ": a new major release" + (beta ? ", still in its beta phase." : ".");
  if (available) return what + (type == "smallupdate" ? ": a small update." : ": a full update.");
  if (over_version) {
    return "A node runs a newer version than the maker offers. There is nothing to update to.";
  }
  return "Every node is up to date.";
}

}  // namespace kalo::cli
