#include "services/meshd/bus_text.h"

#include <gtest/gtest.h>

namespace kalo::meshd {
namespace {

TEST(BusText, KeepsUtf8) {
  EXPECT_EQ(BusText("Dachboden – 屋根裏 🙂"), "Dachboden – 屋根裏 🙂");
  EXPECT_EQ(BusText(""), "");
}

TEST(BusText, ControlCharactersBecomeBlanks) {
  EXPECT_EQ(BusText(std::string("a\nb\0c\x7f", 6)), "a b c ");
}

TEST(BusText, WhatIsNoUtf8LosesItsHighBytes) {
  for (const char* text : {"\xff", "\xc3", "\x80", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80",
                           "\xe0\x80\x80", "\xf0\x80\x80\x80", "\xc3(", "\xf5\x80\x80\x80"}) {
    const std::string clean = BusText(text);
    for (const char c : clean) EXPECT_LT(static_cast<unsigned char>(c), 0x80U);
    EXPECT_NE(clean.find('?'), std::string::npos);
  }
}

TEST(BusText, LongTextsAreCutBetweenCharacters) {
  std::string text(1023, 'a');
  text += "é!";
  EXPECT_EQ(BusText(text), std::string(1023, 'a'));
}

}  // namespace
}  // namespace kalo::meshd
