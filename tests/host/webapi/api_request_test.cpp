#include "platform/webapi/api_request.h"

#include <gtest/gtest.h>

namespace KALO {
namespace {

Json::Value Parameters() {
  Json::Value value(Json::objectValue);
  value["yes"] = true;
  value["text_yes"] = "true";
  value["text_no"] = "false";
  value["text"] = "x";
  value["number"] = 1;
  value["null"] = Json::Value();
  return value;
}

TEST(APIRequest, BooleansComeAsSuchOrAsWords) {
  const APIRequest request(Parameters());
  EXPECT_EQ(request.GetAndCheckBool("yes"), true);
  EXPECT_EQ(request.GetAndCheckBool("text_yes"), true);
  EXPECT_EQ(request.GetAndCheckBool("text_no"), false);
  for (const char* name : {"text", "number", "null", "missing", ""}) {
    EXPECT_FALSE(request.GetAndCheckBool(name).has_value()) << name;
  }
}

TEST(APIRequest, TextsAreStringsOnly) {
  const APIRequest request(Parameters());
  EXPECT_EQ(request.GetAndCheckString("text"), "x");
  for (const char* name : {"yes", "number", "null", "missing"}) {
    EXPECT_FALSE(request.GetAndCheckString(name).has_value()) << name;
  }
}

TEST(APIRequest, GetParamFallsBackOnlyWhenTheNameIsMissing) {
  const APIRequest request(Parameters());
  EXPECT_EQ(request.GetParam("number", 5).asInt(), 1);
  EXPECT_TRUE(request.GetParam("null", 5).isNull());
  EXPECT_EQ(request.GetParam("missing", 5).asInt(), 5);
}

TEST(APIRequest, AnythingButAnObjectHasNoParameters) {
  for (const Json::Value& value :
       {Json::Value(), Json::Value(3), Json::Value("x"), Json::Value(Json::arrayValue)}) {
    EXPECT_FALSE(APIRequest(value).GetAndCheckString("x").has_value());
  }
}

}  // namespace
}  // namespace KALO
