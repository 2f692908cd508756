#include "host/core/strict_json.h"

#include <gtest/gtest.h>

namespace kalo {
namespace {

TEST(StrictJson, ParsesObjectsAndArrays) {
  EXPECT_EQ((*ParseStrictJson(R"({"a":[1,"\u00e4"]})"))["a"][1].asString(), "\xC3\xA4");
  EXPECT_TRUE(ParseStrictJson("[]"));
}

TEST(StrictJson, RefusesEverythingElseWithoutThrowing) {
  for (const std::string& text :
       {std::string(), std::string("1"), std::string("{}{}"), std::string("{}x"),
        std::string("{\"a\":1,}"), std::string("{\"a\":1,\"a\":2}"), std::string("{'a':1}"),
        std::string("{\"a\":NaN}"), std::string("\xEF\xBB\xBF{}"), std::string("[\"\xFF\"]"),
        std::string("[\"\\ud800\"]"), std::string(100000, '['),
        std::string("{\"a\":") + std::string(200, '[') + std::string(200, ']') + "}"}) {
    EXPECT_FALSE(ParseStrictJson(text)) << text.substr(0, 30);
  }
}

TEST(StrictJson, KnowsUtf8) {
  for (const char* good : {"", "abc", "\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                           "\xEE\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_TRUE(IsUtf8(good));
  }
  for (const char* bad :
       {"\x80", "\xC0\x80", "\xC1\xBF", "\xC3", "\xE0\x80\x80", "\xED\xA0\x80", "\xF0\x80\x80\x80",
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "\xE2\x82"}) {
    EXPECT_FALSE(IsUtf8(bad));
  }
}

TEST(StrictJson, WritesOneLineOfAscii) {
  Json::Value value(Json::objectValue);
  value["a"] = "\xC3\xA4\n";
  EXPECT_EQ(WriteJson(value), R"({"a":"\u00e4\n"})");
}

}  // namespace
}  // namespace kalo
