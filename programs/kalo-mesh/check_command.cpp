#include <iostream>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/update_offer.h"

namespace kalo::cli {

int RunCheck(const CommonOptions& common, const CheckOptions& options) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  const Json::Value data = CheckForUpdate(client, options.is_auto);
  const UpdateOffer offer = ReadOffer(data);
  if (common.json) {
    std::cout << WriteJson(data) << "\n";
    return kOk;
  }
  std::cout << offer.Sentence() << "\n";
  if (offer.available) std::cout << "Next: kalo-mesh upgrade\n";
  return kOk;
}

}  // namespace kalo::cli
