#pragma once

#include <gtest/gtest.h>

#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"

namespace kalo::test {

/// What the module may rely on in requests and responses, whoever supplies them: the host and the
/// fake platform both instantiate this suite.
/// @tparam Fixture what the supplier needs around each test
template <class Fixture>
class ApiContract : public Fixture {
 protected:
  static KALO::APIRequest Request() {
    Json::Value value(Json::objectValue);
    value["yes"] = true;
    value["no"] = false;
    value["true text"] = "true";
    value["text"] = "x";
    value["number"] = 1;
    value["null"] = Json::Value();
    value["list"].append(true);
    return KALO::APIRequest(value);
  }
};

TYPED_TEST_SUITE_P(ApiContract);

TYPED_TEST_P(ApiContract, OnlyABooleanIsABoolean) {
  const KALO::APIRequest request = this->Request();
  EXPECT_EQ(request.GetAndCheckBool("yes"), true);
  EXPECT_EQ(request.GetAndCheckBool("no"), false);
  for (const char* name : {"true text", "text", "number", "null", "list", "missing", ""}) {
    EXPECT_FALSE(request.GetAndCheckBool(name).has_value()) << name;
  }
}

TYPED_TEST_P(ApiContract, OnlyAStringIsAString) {
  const KALO::APIRequest request = this->Request();
  EXPECT_EQ(request.GetAndCheckString("text"), "x");
  EXPECT_EQ(request.GetAndCheckString("true text"), "true");
  for (const char* name : {"yes", "number", "null", "list", "missing", ""}) {
    EXPECT_FALSE(request.GetAndCheckString(name).has_value()) << name;
  }
}

TYPED_TEST_P(ApiContract, GetParamFallsBackOnlyWhenTheNameIsMissing) {
  const KALO::APIRequest request = this->Request();
  EXPECT_EQ(request.GetParam("number", 5).asInt(), 1);
  EXPECT_TRUE(request.GetParam("null", 5).isNull());
  EXPECT_EQ(request.GetParam("missing", 5).asInt(), 5);
}

TYPED_TEST_P(ApiContract, AnythingButAnObjectHasNoParameters) {
  for (const Json::Value& value :
       {Json::Value(), Json::Value(3), Json::Value("x"), Json::Value(Json::arrayValue)}) {
    const KALO::APIRequest request(value);
    EXPECT_FALSE(request.GetAndCheckString("x").has_value());
    EXPECT_FALSE(request.GetAndCheckBool("x").has_value());
    EXPECT_EQ(request.GetParam("x", 5).asInt(), 5);
  }
}

TYPED_TEST_P(ApiContract, AResponseKnowsThatNothingWasAnswered) {
  EXPECT_FALSE(KALO::APIResponse().HasAnswer());
}

TYPED_TEST_P(ApiContract, AResponseKeepsTheLastAnswer) {
  KALO::APIResponse response;
  response.SetError(117, Json::Value("why"));
  EXPECT_FALSE(response.IsSuccess());
  EXPECT_EQ(response.ErrorCode(), 117);
  response.SetSuccess(Json::Value(5));
  EXPECT_TRUE(response.HasAnswer());
  EXPECT_TRUE(response.IsSuccess());
  EXPECT_EQ(response.ErrorCode(), 0);
  EXPECT_EQ(response.Data().asInt(), 5);
  response.SetError(5209, Json::Value());
  EXPECT_FALSE(response.IsSuccess());
  EXPECT_TRUE(response.Data().isNull());
}

REGISTER_TYPED_TEST_SUITE_P(ApiContract, OnlyABooleanIsABoolean, OnlyAStringIsAString,
                            GetParamFallsBackOnlyWhenTheNameIsMissing,
                            AnythingButAnObjectHasNoParameters,
                            AResponseKnowsThatNothingWasAnswered, AResponseKeepsTheLastAnswer);

}  // namespace kalo::test
