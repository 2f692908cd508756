// "kalo-mesh notifications" as root on the router runs it, against a server that answers as a test
// says.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "programs/kalo-mesh/failure.h"
#include "tests/programs/local_server.h"

namespace kalo::cli {
namespace {

using test::LocalServer;
using test::Result;
using test::RunKaloMesh;
using test::Success;
using testing::HasSubstr;
using testing::StartsWith;

TEST(KaloMeshNotifications, SaysWhenThereAreNone) {
  LocalServer server(Success(R"({"notifications":[]})"));
  const Result result = RunKaloMesh({"notifications"});
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_EQ(result.out, "No notifications.\n");
  EXPECT_THAT(server.Request(), StartsWith("POST /webapi/KALO.Core.Notification/1/list "));
}

TEST(KaloMeshNotifications, ListsIdTimeAndText) {
  const LocalServer server(Success(R"({"notifications":[)"
                                   R"({"id":12,"time":1767225600,"text":"second\u001b[31m"},)"
                                   R"({"id":7,"time":0,"text":"first"}]})"));
  const Result result = RunKaloMesh({"notifications"});
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, StartsWith("ID"));
  EXPECT_THAT(result.out, testing::ContainsRegex("\n12 +20(25-12-31|26-01-01) [0-9:]+ +second"));
  EXPECT_THAT(result.out, testing::ContainsRegex("\n7 +19(69-12-31|70-01-01) [0-9:]+ +first"));
  EXPECT_EQ(result.out.find('\x1b'), std::string::npos) << "a terminal must not obey a text";
}

TEST(KaloMeshNotifications, PrintsTheAnswerAsItIsForScripts) {
  const std::string data = R"({"notifications":[{"id":7,"text":"first","time":0}]})";
  const LocalServer server(Success(data));
  const Result result = RunKaloMesh({"notifications", "--json"});
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_EQ(result.out, data + "\n");
}

TEST(KaloMeshNotifications, DismissesTheOneThatIsNamed) {
  LocalServer server(Success("null"));
  const Result result = RunKaloMesh({"notifications", "--dismiss", "7"});
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_EQ(result.out, "");
  const std::string request = server.Request();
  EXPECT_THAT(request, StartsWith("POST /webapi/KALO.Core.Notification/1/dismiss "));
  EXPECT_THAT(request, HasSubstr("\r\n\r\n{\"id\":7}"));
}

TEST(KaloMeshNotifications, WrongIdsAreWrongUsage) {
  LocalServer server(Success("null"));
  for (const char* id : {"0", "-1", "x", "99999999999"}) {
    EXPECT_EQ(RunKaloMesh({"notifications", "--dismiss", id}).status, kUsage) << id;
  }
  EXPECT_EQ(server.Request(), "") << "nothing may be asked";
}

TEST(KaloMeshNotifications, ARefusalIsTold) {
  const LocalServer server(R"({"success":false,"error":{"code":117,"message":"It failed."}})");
  const Result result = RunKaloMesh({"notifications"});
  EXPECT_EQ(result.status, kRefused);
  EXPECT_THAT(result.err, HasSubstr("It failed."));
}

TEST(KaloMeshNotifications, AnAnswerOfAnotherShapeIsNoCrash) {
  for (const char* data : {"null", "[]", R"({"notifications":{}})", R"({"notifications":[1]})",
                           R"({"notifications":[{"id":"x","time":"y","text":3}]})"}) {
    const LocalServer server(Success(data));
    EXPECT_LT(RunKaloMesh({"notifications"}).status, 128) << data;
  }
}

}  // namespace
}  // namespace kalo::cli
