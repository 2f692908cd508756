// A request's parameters as JSON, in two pieces, and what a module then gets of them.

#include "fuzz/fuzz_target.h"
#include "host/core/strict_json.h"
#include "platform/webapi/api_request.h"
#include "services/webapid/json_body.h"

namespace {

using namespace kalo::fuzz;

void CheckParameter(const KALO::APIRequest& request, const std::string& name,
                    const Json::Value& value) {
  const auto text = request.GetAndCheckString(name);
  Require(text.has_value() == value.isString(), "a text is a string, and nothing else");
  Require(!text || value == *text, "a text comes as it was sent");
  const auto boolean = request.GetAndCheckBool(name);
  Require(boolean.has_value() == value.isBool(), "a boolean is one, and nothing else");
  Require(!boolean || value == *boolean, "a boolean comes as it was sent");
  Require(request.GetParam(name, "the fallback") == value, "a parameter comes as it was sent");
}

void CheckMissing(const KALO::APIRequest& request, const std::string& name) {
  const Json::Value fallback("the fallback");
  Require(!request.GetAndCheckString(name) && !request.GetAndCheckBool(name) &&
              request.GetParam(name, fallback) == fallback,
          "what was not sent is missing");
}

// @param parameters any document: what is no object has no parameters
void CheckRequest(const Json::Value& parameters) {
  const KALO::APIRequest request(parameters);
  std::string none = "none";
  if (parameters.isObject()) {
    for (const std::string& name : parameters.getMemberNames()) {
      CheckParameter(request, name, parameters[name]);
      none += name;  // longer than each name
    }
  }
  CheckMissing(request, none);
  CheckMissing(KALO::APIRequest(Json::Value(Json::arrayValue)), none);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = TextOf(data, size);
  const std::string_view view = text;
  kalo::webapid::JsonBody whole(65536);
  whole.Feed(view);
  const auto at_once = whole.Finish();
  kalo::webapid::JsonBody pieces(65536);
  pieces.Feed(view.substr(0, view.size() / 2));
  pieces.Feed(view.substr(view.size() / 2));
  const auto in_pieces = pieces.Finish();
  Require(at_once.error == in_pieces.error && at_once.parameters == in_pieces.parameters,
          "pieces make no difference");
  if (at_once.error == 0) {
    Require(at_once.parameters.isObject(), "parameters are an object");
    for (const std::string& name : at_once.parameters.getMemberNames()) {
      Require(!name.empty() && name.size() <= 256 && !name.ends_with("_file_tmp"),
              "a client's parameter has a name of its own");
    }
    CheckRequest(at_once.parameters);
  }
  // Rows that the local callers reach get names that the front does not let in.
  if (const auto document = kalo::ParseStrictJson(text)) CheckRequest(*document);
  return 0;
}
