#include "platform/update/response.h"

#include <gtest/gtest.h>

#include "host/core/strict_json.h"

namespace KALO::MESH::SDK {
namespace {

Response From(const char* text) {
  return Response::FromEnvelope(kalo::ParseStrictJson(text).value());
}

TEST(ResponseTest, AFreshOneIsNoAnswer) {
  const Response response;
  Json::Value data = "kept";
  EXPECT_FALSE(response.IsValid());
  EXPECT_FALSE(response.IsSuccess());
  EXPECT_EQ(response.GetErrno(), 0);
  EXPECT_FALSE(response.GetData(data));
  EXPECT_EQ(data, "kept");
}

TEST(ResponseTest, ASuccessCarriesItsData) {
  const Response response = From(R"({"success":true,"data":{"build":76010}})");
  Json::Value data;
  EXPECT_TRUE(response.IsValid());
  EXPECT_TRUE(response.IsSuccess());
  EXPECT_EQ(response.GetErrno(), 0);
  ASSERT_TRUE(response.GetData(data));
  EXPECT_EQ(data["build"], 76010);
}

TEST(ResponseTest, NullOrMissingDataIsNone) {
  for (const char* text : {R"({"success":true,"data":null})", R"({"success":true})"}) {
    const Response response = From(text);
    Json::Value data = "kept";
    EXPECT_TRUE(response.IsSuccess());
    EXPECT_FALSE(response.GetData(data));
    EXPECT_EQ(data, "kept");
  }
}

TEST(ResponseTest, EmptyDataIsData) {
  Json::Value data;
  EXPECT_TRUE(From(R"({"success":true,"data":{}})").GetData(data));
  EXPECT_TRUE(From(R"({"success":true,"data":false})").GetData(data));
}

TEST(ResponseTest, AFailureCarriesItsNumberAndNoData) {
  const Response response =
      From(R"({"success":false,"data":{"x":1},"error":{"code":5221,"message":"no"}})");
  Json::Value data;
  EXPECT_TRUE(response.IsValid());
  EXPECT_FALSE(response.IsSuccess());
  EXPECT_EQ(response.GetErrno(), 5221);
  EXPECT_FALSE(response.GetData(data));
}

TEST(ResponseTest, AnythingElseIsNotValid) {
  for (const char* text :
       {"{}", "[]", "[true]", R"({"success":1})", R"({"success":"true"})", R"({"success":null})",
        R"({"success":false})", R"({"success":false,"error":5221})",
        R"({"success":false,"error":{}})", R"({"success":false,"error":{"code":"5221"}})",
        R"({"success":false,"error":{"code":99999999999}})",
        R"({"success":false,"error":{"code":1.5}})", R"({"success":false,"error":null})"}) {
    const Response response = From(text);
    EXPECT_FALSE(response.IsValid()) << text;
    EXPECT_FALSE(response.IsSuccess()) << text;
    EXPECT_EQ(response.GetErrno(), 0) << text;
  }
  EXPECT_FALSE(Response::FromEnvelope(Json::Value()).IsValid());
  EXPECT_FALSE(Response::FromEnvelope(Json::Value("text")).IsValid());
}

}  // namespace
}  // namespace KALO::MESH::SDK
