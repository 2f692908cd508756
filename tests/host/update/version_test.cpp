#include "platform/update/version.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>

namespace KALO::MESH::SDK::Utils {
namespace {

struct Case {
  const char* text;
  int build;
  int nano;
};

class VersionTest : public ::testing::TestWithParam<Case> {};
class NoVersionTest : public ::testing::TestWithParam<std::string> {};

TEST_P(VersionTest, IsRead) {
  int build = -1;
  int nano = -1;
  EXPECT_EQ(GetBuildNum(GetParam().text, build, nano), 0);
  EXPECT_EQ(build, GetParam().build);
  EXPECT_EQ(nano, GetParam().nano);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, VersionTest,
    ::testing::Values(Case{"VXM 1.4.0-76010 Update 3", 76010, 3}, Case{"VXM 1.4.0-76010", 76010, 0},
                      Case{"VXM 1.3.1-9346 Update 4", 9346, 4}, Case{"1.4.0-76010", 76010, 0},
                      Case{"1.4.0-76010 Update 3", 76010, 3}, Case{"VXM 1.4-76010", 76010, 0},
                      Case{"VXM 1.4.0-76010 Beta 2", 76010, 2}, Case{"76010-3", 76010, 3},
                      Case{"VXM 2-9346", 9346, 0}, Case{"VXM 1.3.1-9346 U2 4", 9346, 4},
                      Case{"VXM 1.4.0-76000 Beta", 76000, 0}, Case{"VXM 1.4.0rc1-76000", 76000, 0},
                      Case{"VXM 76010-3", 3, 0}, Case{"VXM 1.4.0-76000 (Beta) 2", 76000, 2},
                      Case{"1.4.0-76010 Update", 76010, 0}, Case{"VXM 1.4.0-76000 4", 76000, 0},
                      Case{"76010", 76010, 0}, Case{"0", 0, 0},
                      Case{"2147483647-2147483647", 2147483647, 2147483647}));

TEST_P(NoVersionTest, FailsWithBothNumbersZero) {
  int build = 5;
  int nano = 5;
  EXPECT_LT(GetBuildNum(GetParam(), build, nano), 0);
  EXPECT_EQ(build, 0);
  EXPECT_EQ(nano, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, NoVersionTest,
    ::testing::Values("", " ", "VXM", "VXM ", "VXM 1.4.0", "VXM 1.4.0-", "VXM 76010", "VXM -3",
                      "VXM 1.3.1-Update", "VXM 1.4.0 Update 3", "vxm 1.4.0-76010",
                      "VXM  1.4.0-76010", " 76010", "76010 ", "76010-", "-76010", "76010--3",
                      "+76010", "76010-+3", "2147483648", "76010-2147483648",
                      "99999999999999999999", "76010 Update 3", "1.4.0-76010-3",
                      "1.4.0-76010 Update ", "1.4.0-76010 Update x", "VXM 1.4.0-76000 Beta ",
                      "VXM 1.4.0 x-76000", "VXM 1\t-76000", "VXM 2-9346 U2 -4", "VXM 2--9346",
                      "1.4.0-76010 Update 3 ", "1.4.0-76010 Update 3 4", "1.4.0-76010  3",
                      "1.4.0-76010Update 3", "1..0-76010", ".1-76010", "1.-76010", "1.4.0-0x10",
                      "1.4.0-76010\n", std::string("76010\0", 6), std::string(5000, '1'),
                      "1." + std::string(300, '1') + "-76010"));

// Every version that a record or a feed can carry comes back from each of its forms.
TEST(VersionForms, AnyNumbersAreReadBackFromEachForm) {
  std::mt19937 random(20261121);
  std::uniform_int_distribution<int> any(0, std::numeric_limits<int>::max());
  std::uniform_int_distribution<int> small(0, 99);
  for (int i = 0; i < 20000; ++i) {
    const int build = i % 2 == 0 ? any(random) : small(random) * 1000;
    const int nano = i % 3 == 0 ? 0 : i % 3 == 1 ? small(random) : any(random);
    std::string marketing = std::to_string(small(random)) + "." + std::to_string(small(random));
    if (i % 4 != 0) marketing += "." + std::to_string(small(random));
    const std::string full = marketing + "-" + std::to_string(build);
    const std::string update = " Update " + std::to_string(nano);
    for (const std::string& text : {"VXM " + full + update, full + update,
                                    std::to_string(build) + "-" + std::to_string(nano)}) {
      int read_build = -1;
      int read_nano = -1;
      ASSERT_EQ(GetBuildNum(text, read_build, read_nano), 0) << text;
      ASSERT_EQ(read_build, build) << text;
      ASSERT_EQ(read_nano, nano) << text;
    }
    for (const std::string& text : {"VXM " + full, full, std::to_string(build)}) {
      int read_build = -1;
      int read_nano = -1;
      ASSERT_EQ(GetBuildNum(text, read_build, read_nano), 0) << text;
      ASSERT_EQ(read_build, build) << text;
      ASSERT_EQ(read_nano, 0) << text;
    }
  }
}

TEST(VersionForms, NoBytesMakeItFailOtherwiseThanByItsResult) {
  std::mt19937 random(76010);
  const std::string alphabet = "VXM 0123456789.-Update+\n";
  for (int i = 0; i < 50000; ++i) {
    std::string text;
    for (auto length = random() % 24; length > 0; --length) {
      text += alphabet[random() % alphabet.size()];
    }
    int build = 1;
    int nano = 1;
    const int result = GetBuildNum(text, build, nano);
    if (result < 0) {
      ASSERT_EQ(build, 0) << text;
      ASSERT_EQ(nano, 0) << text;
    } else {
      ASSERT_GE(build, 0) << text;
      ASSERT_GE(nano, 0) << text;
    }
  }
}

}  // namespace
}  // namespace KALO::MESH::SDK::Utils
