#pragma once

#include <json/value.h>

#include <string>

#include "programs/kalo-mesh/api_client.h"

namespace kalo::cli {

/// What a check found, read from its answer.
struct UpdateOffer {
  bool available = false;  ///< promotions count too
  bool promotion = false;
  bool beta = false;
  bool over_version = false;
  std::string version;
  std::string type;

  /// @return it in one sentence.
  [[nodiscard]] std::string Sentence() const;
};

/// Lets the router look for newer firmware.
/// @return the answer's data.
/// @throws as ApiClient::Call
[[nodiscard]] Json::Value CheckForUpdate(ApiClient& client, bool is_auto);
[[nodiscard]] UpdateOffer ReadOffer(const Json::Value& data);

}  // namespace kalo::cli
