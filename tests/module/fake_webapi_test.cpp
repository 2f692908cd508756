// The fake platform's requests and responses keep the contract that the host keeps.

#include "tests/fake/module_test.h"
#include "tests/support/api_contract.h"

namespace kalo::test {
namespace {

INSTANTIATE_TYPED_TEST_SUITE_P(Fake, ApiContract, fake::ModuleTest);

class FakeWebapi : public fake::ModuleTest {};

TEST_F(FakeWebapi, EveryReadAndEveryAnswerLeavesALine) {
  EXPECT_FALSE(request.GetAndCheckBool("a").has_value());
  EXPECT_FALSE(request.GetAndCheckString("b").has_value());
  EXPECT_EQ(request.GetParam("c", 5), 5);
  response.SetError(117, Json::Value());
  response.SetSuccess(Json::Value());
  EXPECT_THAT(Lines(),
              fake::ElementsAre("bool a", "string b", "param c", "error 117 null", "success null"));
}

}  // namespace
}  // namespace kalo::test
