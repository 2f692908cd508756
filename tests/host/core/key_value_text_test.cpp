#include "host/core/key_value_text.h"

#include <gtest/gtest.h>

#include <string>

#include "host/core/key_value_line.h"

namespace kalo {
namespace {

std::string ValueOf(const std::string& text) {
  return KeyValueText(text).Get("key").value_or("(absent)");
}

TEST(KeyValueText, WritesDoubleQuotesAndEscapesWhatAShellWouldExpand) {
  EXPECT_EQ(EncodeLine("key", R"(a\b"c$d`e'f)"), "key=\"a\\\\b\\\"c\\$d\\`e'f\"\n");
}

TEST(KeyValueText, WritesControlBytesAsPrintfEscapes) {
  EXPECT_EQ(EncodeLine("key", "a\nb\tc\x7f"), "key=\"a\\0012b\\0011c\\0177\"\n");
}

TEST(KeyValueText, LeavesHighBytesAsTheyAre) {
  EXPECT_EQ(EncodeLine("key", "\x80\xc3\xa4\xff"), "key=\"\x80\xc3\xa4\xff\"\n");
}

TEST(KeyValueText, ReadsBackEveryByteAloneAndBetweenOthers) {
  for (int byte = 1; byte <= 255; ++byte) {
    for (const std::string around : {"", "a", "0", "0012", "\\", "\"", "'", " ", "#", "="}) {
      std::string value = around;
      value += static_cast<char>(byte);
      value += around;
      KeyValueText text("");
      ASSERT_TRUE(text.Set("key", value));
      ASSERT_EQ(text.Get("key"), value) << "byte " << byte << " around " << around;
    }
  }
}

TEST(KeyValueText, ReadsBackEveryPairOfBytesThatMayMeanAnEscape) {
  const std::string special = "\\\"'$`0127\n\t\x01 x";
  for (const char a : special) {
    for (const char b : special) {
      for (const char c : special) {
        const std::string value = {a, b, c};
        ASSERT_EQ(DecodeValue(EncodeLine("k", value).substr(2, EncodeLine("k", value).size() - 3)),
                  value);
      }
    }
  }
}

TEST(KeyValueText, ReadsAPlainValueWithItsBlanks) {
  EXPECT_EQ(ValueOf("key=value\n"), "value");
  EXPECT_EQ(ValueOf("key=  two words \n"), "  two words ");
  EXPECT_EQ(ValueOf("key=a=b # c\n"), "a=b # c");
  EXPECT_EQ(ValueOf("key=a\\n\"b\n"), "a\\n\"b");
  EXPECT_EQ(ValueOf("key="), "");
}

TEST(KeyValueText, ReadsASingleQuotedValueWithNothingSpecialInIt) {
  EXPECT_EQ(ValueOf("key='a\\0012 \"$b` '\n"), "a\\0012 \"$b` ");
  EXPECT_EQ(ValueOf("key=''\n"), "");
  EXPECT_EQ(ValueOf("key='a' \t\r\n"), "a");
}

TEST(KeyValueText, KeepsABackslashThatEscapesNothing) {
  EXPECT_EQ(ValueOf(R"(key="a\b\x41\00\09999\0400\0000")"), R"(a\b\x41\00\09999\0400\0000)");
}

TEST(KeyValueText, TakesALineWithABrokenQuoteAsPlain) {
  EXPECT_EQ(ValueOf("key=\"half\n"), "\"half");
  EXPECT_EQ(ValueOf("key=\"half\\\"\n"), "\"half\\\"");
  EXPECT_EQ(ValueOf("key=\"a\"b\n"), "\"a\"b");
  EXPECT_EQ(ValueOf("key='half\n"), "'half");
  EXPECT_EQ(ValueOf("key='a'b\n"), "'a'b");
  EXPECT_EQ(ValueOf("key=\""), "\"");
}

TEST(KeyValueText, TheLastOfTwoLinesCounts) {
  EXPECT_EQ(ValueOf("key=\"a\"\nother=\"x\"\nkey='b'\n"), "b");
}

TEST(KeyValueText, ALineIsOfAKeyOnlyWithTheWholeNameAtItsStart) {
  for (const std::string line : {"keys=a", "ke=a", " key=a", "#key=a", "key =a", "key", "=a",
                                 "a=key=b", "", "export key=a", "KEY=a"}) {
    EXPECT_EQ(ValueOf(line + "\n"), "(absent)") << line;
  }
}

TEST(KeyValueText, SetKeepsEveryOtherLineByteForByte) {
  const std::string before = "# comment key=\"x\"\n\n  blank=1\r\n\xff\x01garbage\n";
  const std::string after = "keys='k'\nother = 3\nlast without end";
  KeyValueText text(before + "key=old\n" + after);
  ASSERT_TRUE(text.Set("key", "new"));
  EXPECT_EQ(text.Text(), before + "key=\"new\"\n" + after);
}

TEST(KeyValueText, SetLeavesOneLineInThePlaceOfTheLast) {
  KeyValueText text("key=1\na=2\nkey=3\nb=4\nkey=5\nc=6\n");
  ASSERT_TRUE(text.Set("key", "7"));
  EXPECT_EQ(text.Text(), "a=2\nb=4\nkey=\"7\"\nc=6\n");
}

TEST(KeyValueText, SetAppendsBehindALineWithoutEnd) {
  KeyValueText text("a=1");
  ASSERT_TRUE(text.Set("key", "v"));
  EXPECT_EQ(text.Text(), "a=1\nkey=\"v\"\n");
}

TEST(KeyValueText, SetReplacesALastLineWithoutEnd) {
  KeyValueText text("a=1\nkey=x");
  ASSERT_TRUE(text.Set("key", "v"));
  EXPECT_EQ(text.Text(), "a=1\nkey=\"v\"\n");
}

TEST(KeyValueText, RemoveTakesEveryLineOfTheKeyAndNoOther) {
  KeyValueText text("key=1\na=2\nkey='3'\n# key=4\nkey=5");
  EXPECT_TRUE(text.Remove("key"));
  EXPECT_EQ(text.Text(), "a=2\n# key=4\n");
  EXPECT_FALSE(text.Remove("key"));
}

TEST(KeyValueText, RefusesWhatIsNoKeyOrBreaksALimit) {
  KeyValueText text("a=1\n");
  for (const std::string key : {"", "-a", ".a", "a b", "a=b", "a\nb", "a$b", "\xc3\xa4", "a/b"}) {
    EXPECT_FALSE(text.Set(key, "v")) << key;
  }
  EXPECT_FALSE(text.Set(std::string(kMaxKeyLength + 1, 'k'), "v"));
  EXPECT_FALSE(text.Set("key", std::string(kMaxValueLength + 1, 'v')));
  EXPECT_FALSE(text.Set("key", std::string("a\0b", 3)));
  EXPECT_EQ(text.Text(), "a=1\n");
  EXPECT_TRUE(text.Set(std::string(kMaxKeyLength, 'k'), std::string(kMaxValueLength, '\n')));
  EXPECT_TRUE(text.Set("0a-b.c_D", ""));
}

}  // namespace
}  // namespace kalo
