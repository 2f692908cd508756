#include "platform/webapi/api_response.h"

#include <gtest/gtest.h>

namespace KALO {
namespace {

TEST(APIResponse, KnowsThatNothingWasAnswered) {
  EXPECT_FALSE(APIResponse().HasAnswer());
}

TEST(APIResponse, KeepsTheLastAnswer) {
  APIResponse response;
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

}  // namespace
}  // namespace KALO
