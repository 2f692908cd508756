// The progress files as the module reads them.

#include "fuzz/fuzz_target.h"
#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "webapi/exceptions.h"
#include "webapi/upgrade_handler.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  PutInput(kInputFile, TextOf(data, size));
  KALO::APIRequest request{Json::Value(Json::objectValue)};
  KALO::APIResponse response;
  KALO::MESH::Webapi::UpgradeHandler handler(&request, &response);
  std::string step;
  int percent = -1;
  try {
    handler.ProgressFromFile(kInputFile, step, percent);
  } catch (const KALO::MESH::Webapi::WebapiException&) {
    return 0;
  }
  Require(!step.empty(), "there is always a step");
  Require(percent >= 0 && percent <= 100, "a percentage is one");
  return 0;
}
