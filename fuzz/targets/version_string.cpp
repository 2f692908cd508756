// The module's two readers of version texts.

#include "fuzz/fuzz_target.h"
#include "platform/update/version.h"
#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "webapi/exceptions.h"
#include "webapi/upgrade_handler.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  const std::string text = TextOf(data, size);
  KALO::APIRequest request{Json::Value(Json::objectValue)};
  KALO::APIResponse response;
  KALO::MESH::Webapi::UpgradeHandler handler(&request, &response);
  std::string os_version = "stale";
  int build = 1;
  int nano = 1;
  const bool is_parsed = handler.ParseVersion(text, os_version, build, nano);
  int read_build = 0;
  int read_nano = 0;
  if (text.starts_with("VXM ") &&
      KALO::MESH::SDK::Utils::GetBuildNum(text, read_build, read_nano) >= 0) {
    Require(is_parsed && build == read_build && nano == read_nano,
            "both read the same numbers of a display form");
  }
  if (!is_parsed) {
    Require(os_version.empty() && build == 0 && nano == 0, "a text that is none leaves nothing");
  }
  try {
    Require(handler.CompareVersion(text, text) == 0, "a version is like itself");
  } catch (const KALO::MESH::Webapi::WebapiException&) {
    return 0;  // no version
  }
  return 0;
}
