#include "platform/webapi/api_request.h"

#include "host/core/strict_json.h"
#include "tests/support/api_contract.h"

namespace kalo::test {
namespace {

INSTANTIATE_TYPED_TEST_SUITE_P(Host, ApiContract, testing::Test);

// A module may keep what it was given longer than the request.
TEST(APIRequest, ParametersComeAsCopies) {
  const auto sent = ParseStrictJson(R"({"a": {"b": [1, "true", true]}})");
  ASSERT_TRUE(sent.has_value());
  Json::Value first;
  {
    const KALO::APIRequest request(*sent);
    first = request.GetParam("a", Json::Value());
    first["b"].append("more");
    EXPECT_EQ(request.GetParam("a", Json::Value()), (*sent)["a"]);
  }
  EXPECT_EQ(WriteJson(first), R"({"b":[1,"true",true,"more"]})");
}

}  // namespace
}  // namespace kalo::test
