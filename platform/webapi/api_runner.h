#pragma once

#include <json/value.h>

#include <string>

namespace KALO {

class APIRunner {
 public:
  /// Runs another web API in this process, on the caller's thread.
  /// @param result receives the envelope: {"success": bool, "data": …} or {"success": false,
  ///               "error": {"code": N}}; an API that is not loaded here gives the latter
  /// @param user   unused here, may be used on other platforms: the account in whose name the API
  ///               runs. Rights are checked once, for the caller of the outer API.
  static void Exec(Json::Value& result, const std::string& api, int version,
                   const std::string& method, const Json::Value& params, const std::string& user);
};

}  // namespace KALO
