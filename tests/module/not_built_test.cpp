#include "tests/fake/module_test.h"

namespace {

struct NotBuilt {
  const char* name;
  KALO::APIHandler entry;
};

class NotBuiltRows : public fake::ModuleTest, public ::testing::WithParamInterface<NotBuilt> {};

TEST_P(NotBuiltRows, AnswerAGeneralFailureAfterOneLogLineAndTouchNothing) {
  Call(GetParam().entry);
  EXPECT_THAT(Logs(), fake::ElementsAre(std::string("3 ") + GetParam().name +
                                        " is not part of this release"));
  EXPECT_THAT(Answers(), fake::ElementsAre("error 117 null"));
  EXPECT_EQ(Lines().size(), 2U);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, NotBuiltRows,
    ::testing::Values(NotBuilt{"StartEqualUpdate", WebapiUpgradeEqualStart},
                      NotBuilt{"CancelEqualUpdate", WebapiUpgradeEqualCancel},
                      NotBuilt{"PatchCheckEqual", WebapiUpgradePatchCheckEqual},
                      NotBuilt{"RunUpgradePrecheck", WebapiUpgradeRunPrecheck}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
