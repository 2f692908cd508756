#include "webapi/log.h"

#include <syslog.h>

#include <stdexcept>

#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

class LogTest : public fake::ModuleTest {};

TEST_F(LogTest, ALineTellsPriorityLineAndText) {
  Log(LOG_DEBUG, 204, "No parameter, %s", "set default");
  EXPECT_THAT(Lines(), fake::ElementsAre("log 7 204 No parameter, set default"));
}

TEST_F(LogTest, PercentSignsOfArgumentsStayText) {
  Log(LOG_ERR, 1, "%s", "100%s%n");
  EXPECT_THAT(Lines(), fake::ElementsAre("log 3 1 100%s%n"));
}

TEST_F(LogTest, AnExceptionEndsInOneErrorLineAndOneAnswerWithoutData) {
  AnswerException(response, 96, "API Error", std::runtime_error("why"), 5209);
  EXPECT_THAT(Lines(), fake::ElementsAre("log 3 96 API Error: why", "error 5209 null"));
}

}  // namespace
}  // namespace KALO::MESH::Webapi
