#include "host/update/patch_format/version_text.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>

namespace kalo::patch {
namespace {

std::string Number(std::mt19937& random, int largest) {
  return std::to_string(std::uniform_int_distribution<int>(0, largest)(random));
}

TEST(VersionTextTest, EveryFormOfAnyNumbersIsReadBack) {
  std::mt19937 random(20240229);
  for (int i = 0; i < 20000; ++i) {
    const std::string build = Number(random, 2147483647);
    const std::string nano = Number(random, 2147483647);
    const std::string marketing =
        Number(random, 99) + "." + Number(random, 99) + "." + Number(random, 99);
    const VersionNumbers both{std::stoi(build), std::stoi(nano)};
    const VersionNumbers full{std::stoi(build), 0};
    EXPECT_EQ(ParseVersionText("VXM " + marketing + "-" + build + " Update " + nano), both);
    EXPECT_EQ(ParseVersionText(marketing + "-" + build + " Update " + nano), both);
    EXPECT_EQ(ParseVersionText(build + "-" + nano), both);
    EXPECT_EQ(ParseVersionText("VXM " + marketing + "-" + build), full);
    EXPECT_EQ(ParseVersionText(marketing + "-" + build), full);
    EXPECT_EQ(ParseVersionText(build), full);
  }
}

TEST(VersionTextTest, RandomTextIsReadOrRefusedButNeverHarms) {
  constexpr std::string_view kAlphabet = "VXM 0123456789.-Update\0\n+";
  std::mt19937 random(7);
  std::uniform_int_distribution<std::size_t> letter(0, kAlphabet.size() - 1);
  std::uniform_int_distribution<int> length(0, 40);
  for (int i = 0; i < 100000; ++i) {
    std::string text;
    for (int k = length(random); k > 0; --k) text += kAlphabet[letter(random)];
    const auto numbers = ParseVersionText(text);
    if (!numbers) continue;
    EXPECT_GE(numbers->build, 0) << text;
    EXPECT_GE(numbers->nano, 0) << text;
  }
}

TEST(VersionTextTest, OnlyTheFormWithTheMarkIsTheDisplayForm) {
  EXPECT_TRUE(IsDisplayForm("VXM 1.4.0-76010"));
  EXPECT_TRUE(IsDisplayForm("VXM 1.4.0-76010 Update 3"));
  EXPECT_FALSE(IsDisplayForm("1.4.0-76010"));
  EXPECT_FALSE(IsDisplayForm("VXM 76010"));
  EXPECT_FALSE(IsDisplayForm("VXM "));
  EXPECT_TRUE(IsDisplayForm("VXM 1.4-76010 Beta 2"));
  for (const char* title : {"VXM 2-9346", "VXM 1.3.1-9346 U2 4", "VXM 1.4.0-76000 Beta",
                            "VXM 1.4.0-76000 Beta2", "VXM 1.4.0rc-76000"}) {
    EXPECT_TRUE(ParseVersionText(title)) << title;
    EXPECT_FALSE(IsDisplayForm(title)) << title;
  }
}

TEST(VersionTextTest, ASmallUpdateHasTheWordWhateverItsNumber) {
  EXPECT_TRUE(IsSmallUpdate("VXM 1.4.0-76010 Update 3"));
  EXPECT_TRUE(IsSmallUpdate("VXM 1.4.0-76010 Update 0"));
  EXPECT_FALSE(IsSmallUpdate("VXM 1.4.0-76010"));
  EXPECT_FALSE(IsSmallUpdate("VXM 1.4.0-76010 update 3"));
}

TEST(VersionTextTest, BuildCountsBeforeSmallUpdate) {
  EXPECT_LT((VersionNumbers{76000, 9}), (VersionNumbers{76010, 0}));
  EXPECT_LT((VersionNumbers{76010, 0}), (VersionNumbers{76010, 1}));
}

}  // namespace
}  // namespace kalo::patch
