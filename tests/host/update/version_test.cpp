#include "platform/update/version.h"

#include <gtest/gtest.h>

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
    ::testing::Values("", " ", "VXM", "VXM ", "VXM 1.4.0", "VXM 1.4.0-", "VXM 76010", "VXM 76010-3",
                      "VXM 1.3.1-Update", "VXM 1.4.0 Update 3", "vxm 1.4.0-76010",
                      "VXM  1.4.0-76010", " 76010", "76010 ", "76010-", "-76010", "76010--3",
                      "+76010", "76010-+3", "2147483648", "76010-2147483648",
                      "99999999999999999999", "76010 Update 3", "1.4.0-76010-3",
                      "1.4.0-76010 Update", "1.4.0-76010 Update ", "1.4.0-76010 Update x",
                      "1.4.0-76010 Update 3 ", "1.4.0-76010 Update 3 4", "1.4.0-76010  3",
                      "1.4.0-76010Update 3", "1..0-76010", ".1-76010", "1.-76010", "1.4.0-0x10",
                      "1.4.0-76010\n", std::string("76010\0", 6), std::string(5000, '1'),
                      "1." + std::string(300, '1') + "-76010"));

}  // namespace
}  // namespace KALO::MESH::SDK::Utils
