#include "platform/webapi/api_runner.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

#include "host/core/strict_json.h"
#include "host/webapi/api_registry.h"
#include "host/webapi/module_error.h"

namespace kalo::webapi {
namespace {

using KALO::APIRequest;
using KALO::APIResponse;

void Echo(APIRequest* request, APIResponse* response) {
  response->SetSuccess(request->GetParam("a", Json::Value()));
}
void Fail(APIRequest* /*request*/, APIResponse* response) {
  response->SetError(5220, Json::Value());
}
void Throw(APIRequest* /*request*/, APIResponse* response) {
  response->SetSuccess(Json::Value());
  throw std::runtime_error("x");
}
void Nothing(APIRequest* /*request*/, APIResponse* /*response*/) {}

constexpr std::array<KALO::APIRow, 4> kRows = {{{"A", 1, "echo", Echo},
                                                {"A", 2, "fail", Fail},
                                                {"A", 1, "throw", Throw},
                                                {"A", 1, "nothing", Nothing}}};

class ApiRunner : public testing::Test {
 protected:
  void SetUp() override {
    registry_.Add(kRows, "test");
    InstallApiRegistry(&registry_);
  }
  void TearDown() override { InstallApiRegistry(nullptr); }

  [[nodiscard]] static std::string Run(int version, const std::string& method) {
    Json::Value parameters(Json::objectValue);
    parameters["a"] = "b";
    Json::Value result("untouched");
    KALO::APIRunner::Exec(result, "A", version, method, parameters, "admin");
    return WriteJson(result);
  }

  ApiRegistry registry_;
};

TEST_F(ApiRunner, GivesTheEnvelopeOfTheRow) {
  EXPECT_EQ(Run(1, "echo"), R"({"data":"b","success":true})");
  EXPECT_EQ(Run(2, "fail"), R"({"error":{"code":5220},"success":false})");
}

TEST_F(ApiRunner, AnUnknownRowIsAnError) {
  EXPECT_EQ(Run(1, "other"), R"({"error":{"code":7002},"success":false})");
  EXPECT_EQ(Run(2, "echo"), R"({"error":{"code":7002},"success":false})");
  InstallApiRegistry(nullptr);
  EXPECT_EQ(Run(1, "echo"), R"({"error":{"code":7002},"success":false})");
}

TEST_F(ApiRunner, ThrowingOrNotAnsweringIsAGeneralFailure) {
  EXPECT_EQ(Run(1, "throw"), R"({"error":{"code":117},"success":false})");
  EXPECT_EQ(Run(1, "nothing"), R"({"error":{"code":117},"success":false})");
}

TEST_F(ApiRunner, ARowOfTwoModulesIsRefusedWhole) {
  const std::array<KALO::APIRow, 2> more = {{{"B", 1, "new", Echo}, {"A", 1, "echo", Fail}}};
  EXPECT_THROW(registry_.Add(more, "other.so"), ModuleError);
  EXPECT_EQ(registry_.Find("B", 1, "new"), nullptr);
  EXPECT_EQ(registry_.Find("A", 1, "echo"), &Echo);
}

}  // namespace
}  // namespace kalo::webapi
