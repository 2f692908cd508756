#include "services/webapid/json_body.h"

#include <gtest/gtest.h>

namespace kalo::webapid {
namespace {

BodyResult Read(const std::string& text, std::size_t piece, std::size_t limit = 1000) {
  JsonBody body(limit);
  for (std::size_t i = 0; i < text.size(); i += piece) body.Feed(text.substr(i, piece));
  return body.Finish();
}

TEST(JsonBody, IsTheSameInAnyPieces) {
  for (std::size_t piece = 1; piece < 12; ++piece) {
    const BodyResult result = Read(R"({"a":[1,2]})", piece);
    EXPECT_EQ(result.error, 0);
    EXPECT_EQ(result.parameters["a"][1].asInt(), 2);
  }
}

TEST(JsonBody, TakesExactlyItsLimit) {
  EXPECT_EQ(Read("{    }", 4, 6).error, 0);
  EXPECT_EQ(Read("{     }", 4, 6).error, 7007);
}

TEST(JsonBody, WantsAnObjectWithGoodNames) {
  EXPECT_EQ(Read("", 1).error, 0);
  EXPECT_EQ(Read("null", 1).error, 7001);
  EXPECT_EQ(Read(R"({"":1})", 1).error, 7001);
  EXPECT_EQ(Read(R"({"a\n":1})", 1).error, 7001);
  EXPECT_EQ(Read(R"({"x_file_\u0074mp":1})", 1).error, 7011);
  EXPECT_EQ(Read(R"({"a":{"x_file_tmp":1}})", 1).error, 0);
}

}  // namespace
}  // namespace kalo::webapid
