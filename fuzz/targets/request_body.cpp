// A request's parameters as JSON, in two pieces.

#include "fuzz/fuzz_target.h"
#include "services/webapid/json_body.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
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
  Require(at_once.error != 0 || at_once.parameters.isObject(), "parameters are an object");
  return 0;
}
