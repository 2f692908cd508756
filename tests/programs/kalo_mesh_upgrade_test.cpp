// "kalo-mesh upgrade" as root on the router runs it, against a server that answers as a test says.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "host/core/file_lock.h"
#include "platform/paths.h"
#include "programs/kalo-mesh/failure.h"
#include "tests/programs/local_server.h"

namespace kalo::cli {
namespace {

using test::LocalServer;
using test::Result;
using test::RunKaloMesh;
using test::Success;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

// A router that found a newer firmware, has it ready, and wants its licence agreed to.
class KaloMeshUpgrade : public ::testing::Test {
 protected:
  std::string Answer(const std::string& row) {
    const std::lock_guard guard(mutex_);
    asked_.push_back(row);
    return Success(answers_.contains(row) ? answers_.at(row) : "null");
  }
  Result Run(std::vector<std::string> words) {
    LocalServer server([this](const std::string& row) { return Answer(row); });
    words.insert(words.begin(), "upgrade");
    return RunKaloMesh(words);
  }

  std::mutex mutex_;
  std::vector<std::string> asked_;
  std::map<std::string, std::string> answers_ = {
      {"KALO.Mesh.Upgrade.Patch/2/check",
       R"({"available":false,"promotion":true,"promotion_version":"VXM 1.4.0-76010",)"
       R"("beta_version":false,"over_version":false,"type":"hbx"})"},
      {"KALO.Mesh.Upgrade.Download/2/progress",
       R"({"status":"finished","percent":100,"version":"VXM 1.4.0-76010"})"},
      {"KALO.Mesh.Upgrade/2/status", R"({"status":"ready_upgrade","allow_upgrade":true})"},
      {"KALO.Mesh.Upgrade/1/precheck",
       R"({"eulacheck":true,"eulacheck_content":"Be kind.","precheck":false})"}};
};

constexpr const char* kDownload = "KALO.Mesh.Upgrade.Download/1/start";
constexpr const char* kStart = "KALO.Mesh.Upgrade/1/start";

TEST_F(KaloMeshUpgrade, ByItselfItDoesNotFetchAgainWhatStandsReady) {
  const Result result = Run({"--auto"});
  EXPECT_EQ(result.status, kUsage);
  EXPECT_THAT(result.err, HasSubstr("--accept-licence"));
  EXPECT_THAT(asked_, Not(Contains(kDownload)));
  EXPECT_THAT(asked_, Not(Contains(kStart)));
}

TEST_F(KaloMeshUpgrade, ByItselfItFetchesWhatIsNewer) {
  answers_["KALO.Mesh.Upgrade.Patch/2/check"] =
      R"({"available":false,"promotion":true,"promotion_version":"VXM 1.4.0-76020"})";
  (void)Run({"--auto"});
  EXPECT_THAT(asked_, Contains(kDownload));
}

TEST_F(KaloMeshUpgrade, ASecondOneByItselfDoesNotBegin) {
  const auto first = FileLock::TryTake(KALO::paths::kAutoUpdateLock);
  ASSERT_TRUE(first);
  const Result result = Run({"--auto"});
  EXPECT_EQ(result.status, kFailed);
  EXPECT_THAT(result.err, HasSubstr("an automatic update runs already"));
}

TEST_F(KaloMeshUpgrade, AnOwnerGetsItFetchedAnew) {
  (void)Run({"--yes"});
  EXPECT_THAT(asked_, Contains(kDownload));
}

TEST_F(KaloMeshUpgrade, WhatIsGoneAgainIsNotWaitedFor) {
  answers_["KALO.Mesh.Upgrade/2/status"] = R"({"status":"none","allow_upgrade":true})";
  const Result result = Run({"--yes", "--accept-licence"});
  EXPECT_EQ(result.status, kFailed);
  EXPECT_THAT(result.err, HasSubstr("not there any more"));
}

// The service hears of what was staged last only when it asks the nodes anew, at the start.
TEST_F(KaloMeshUpgrade, WhatIsWantedIsWhatIsStagedAtTheStart) {
  const auto mesh = [](const std::string& running, const std::string& node) {
    return Success(R"({"update_running":)" + running +
                   R"(,"nodes":[{"id":0,"name":"Hall","model":"m","role":"cap","online":true,)"
                   R"("step":"none","percent":0,"error":"",)" +
                   node + "}]}");
  };
  const std::string old = R"("boot_id":"1","version":"VXM 1.3.1-9346","staged_version":)";
  int looks = 0;
  LocalServer server([&](const std::string& row) {
    if (row != "KALO.Core.Mesh/1/nodes") return Success(R"({"status":"none"})");
    ++looks;
    if (looks == 1) return mesh("false", old + R"("VXM 1.3.2-9400")");
    if (looks == 2) return mesh("true", old + R"("VXM 1.3.2-9400 Update 2")");
    return mesh("false",
                R"("boot_id":"2","version":"VXM 1.3.2-9400 Update 2","staged_version":"")");
  });
  const Result result = RunKaloMesh({"start", "--wait", "--timeout", "20"});
  EXPECT_EQ(result.status, kOk) << result.out << result.err;
}

TEST_F(KaloMeshUpgrade, WhoWantsADocumentIsNotAsked) {
  const Result result = Run({"--json"});
  EXPECT_EQ(result.status, kUsage);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr(R"("success":false)"));
}

}  // namespace
}  // namespace kalo::cli
