#include "host/core/object_reader.h"

#include <gtest/gtest.h>

namespace kalo {
namespace {

TEST(ObjectReader, ReadsTypedMembers) {
  const Json::Value value = ParseJsonText(R"({"t":"x","n":5,"b":true,"a":[1],"o":{"p":1}})", "f");
  ObjectReader reader(value, "f");
  EXPECT_EQ(reader.Text("t"), "x");
  EXPECT_EQ(reader.Integer("n", 5, 5), 5);
  EXPECT_TRUE(reader.Boolean("b", false));
  EXPECT_EQ(reader.Array("a").size(), 1U);
  EXPECT_EQ(reader.Object("o").size(), 1U);
  EXPECT_EQ(reader.Object("none").size(), 0U);
  EXPECT_EQ(reader.Integer("none2", 0, 9, 7), 7);
  EXPECT_NO_THROW(reader.Finish());
}

TEST(ObjectReader, NumbersAreWholeAndInRange) {
  for (const char* text : {R"({"n":4})", R"({"n":11})", R"({"n":5.0})", R"({"n":"5"})",
                           R"({"n":99999999999})", R"({"n":true})", R"({})"}) {
    const Json::Value value = ParseJsonText(text, "f");
    ObjectReader reader(value, "f");
    EXPECT_THROW((void)reader.Integer("n", 5, 10), FormatError) << text;
  }
}

TEST(ObjectReader, AMemberNobodyAskedForIsRefused) {
  const Json::Value value = ParseJsonText(R"({"typo":1})", "f");
  const ObjectReader reader(value, "f");
  EXPECT_THROW(reader.Finish(), FormatError);
}

TEST(ObjectReader, MissingFilesAreErrorsWithTheirName) {
  try {
    (void)ReadJsonFile("/none.json");
    FAIL();
  } catch (const FormatError& e) {
    EXPECT_STREQ(e.what(), "/none.json: No such file or directory");
  }
}

}  // namespace
}  // namespace kalo
