// What an owner of a mesh goes through, on a real one: four nodes with their servers, their buses
// and the mesh service. Node 3 hangs on node 2, which hangs on node 0, the CAP.

#include <gtest/gtest.h>

#include <string>

#include "tests/journeys/support/mesh_box.h"
#include "tests/support/wait.h"

namespace kalo::journeys {
namespace {

class Journey : public testing::Test {
 protected:
  // Every node runs it: read from the nodes themselves.
  void ExpectAllRun(const std::string& version) const {
    for (int node = 0; node < 4; ++node) {
      EXPECT_EQ(mesh_.RunningVersion(node), version) << "node " << node;
    }
  }

  // The whole update, followed to its end.
  void StartAndWait() const {
    const Answer answer = mesh_.Cli({"start", "--wait"});
    EXPECT_EQ(answer.status, 0) << answer.text;
  }

  MeshBox mesh_{testing::UnitTest::GetInstance()->current_test_info()->name()};
};

TEST_F(Journey, APatchForEachModelUpgradesEveryNode) {
  ExpectAllRun(kFirst);
  const std::string boot = mesh_.Node(3)["boot_id"].asString();
  const Answer upload = mesh_.Upload({Patch("kalo_m1", 76010), Patch("kalo_m2", 76010)});
  ASSERT_EQ(upload.status, 0) << upload.text;
  EXPECT_EQ(upload.data["version"], kNext);
  EXPECT_TRUE(mesh_.WaitForStaged(3, kNext));
  StartAndWait();
  ExpectAllRun(kNext);
  EXPECT_NE(mesh_.Node(3)["boot_id"].asString(), boot);
  EXPECT_TRUE(mesh_.WaitForStatus("none"));
  const Json::Value progress = mesh_.Cli({"progress"}).data;
  EXPECT_EQ(progress["total_percentage"], 100);
}

TEST_F(Journey, AnOfflineNodeIsToldAndStaysAtItsVersion) {
  mesh_.Event(3, "offline");
  ASSERT_TRUE(mesh_.WaitForStatus("mesh_system_error"));
  EXPECT_EQ(mesh_.Status()["reason"], "node_offline");
  mesh_.UploadNext();
  const Answer start = mesh_.Cli({"start", "--wait"});
  EXPECT_EQ(start.status, 0) << start.text;
  for (const int node : {0, 1, 2}) EXPECT_EQ(mesh_.RunningVersion(node), kNext) << node;
  mesh_.Event(3, "online");
  EXPECT_TRUE(mesh_.WaitForStatus("mesh_version_not_equal"));
  EXPECT_EQ(mesh_.RunningVersion(3), kFirst);
}

TEST_F(Journey, ANodeThatIsOfflineOverARestartOfTheMainRouterKeepsItsIdentity) {
  const Json::Value before = mesh_.Node(1);
  ASSERT_FALSE(before["name"].asString().empty());
  const std::string boot = mesh_.Node(0)["boot_id"].asString();
  mesh_.Event(1, "offline");
  mesh_.Event(0, "offline");
  mesh_.Event(0, "online");
  ASSERT_TRUE(test::WaitFor(
      [&] {
        const Answer nodes = mesh_.Cli({"nodes"});
        return nodes.status == 0 && nodes.data["nodes"][0]["online"] == true &&
               nodes.data["nodes"][0]["boot_id"].asString() != boot;
      },
      MeshBox::kDeadline));
  const Json::Value after = mesh_.Node(1);
  EXPECT_EQ(after["online"], false);
  for (const char* key : {"name", "model", "version"}) EXPECT_EQ(after[key], before[key]) << key;
  mesh_.Event(1, "online");
  EXPECT_TRUE(mesh_.WaitForStatus("none"));
}

TEST_F(Journey, ANodeThatRefusesThePatchDoesNotKeepItFromTheOthers) {
  mesh_.Event(1, "upload-fail");
  const Answer upload = mesh_.Upload({Patch("kalo_m1", 76010), Patch("kalo_m2", 76010)});
  EXPECT_EQ(upload.status, 3) << upload.text;
  EXPECT_EQ(upload.Code(), 5221);
  for (const int node : {0, 2, 3}) {
    EXPECT_TRUE(mesh_.WaitForStaged(node, kNext)) << node;
  }
  EXPECT_EQ(mesh_.Node(1)["staged_version"], "");
}

TEST_F(Journey, AFullDiskIsTheNodesOwnError) {
  mesh_.Event(2, "fill-disk");
  const Answer upload = mesh_.Upload({Patch("kalo_m1", 76010), Patch("kalo_m2", 76010)});
  EXPECT_EQ(upload.status, 3) << upload.text;
  EXPECT_NE(upload.Code(), 0);
  mesh_.Event(2, "free-disk");
  mesh_.UploadNext();
  EXPECT_TRUE(mesh_.WaitForStaged(2, kNext));
}

TEST_F(Journey, PatchesOfDifferentVersionsAreRefused) {
  const Answer upload = mesh_.Upload({Patch("kalo_m1", 76010), Patch("kalo_m2", 76020)});
  EXPECT_EQ(upload.status, 3);
  EXPECT_EQ(upload.Code(), 1001) << upload.text;
  EXPECT_EQ(mesh_.Node(1)["staged_version"], "");
}

TEST_F(Journey, AVersionThatRunsAlreadyIsNothingToDo) {
  const Answer upload = mesh_.Upload({Patch("kalo_m1", 76000), Patch("kalo_m2", 76000)});
  EXPECT_EQ(upload.status, 3);
  EXPECT_EQ(upload.Code(), 1002) << upload.text;
}

TEST_F(Journey, AStartWhileADownloadRunsIsComplainedOfAndRuns) {
  mesh_.UploadNext();
  // One that nobody runs would be ended: somebody holds the lock until the CAP restarts.
  ASSERT_EQ(mesh_
                .Exec(0, {"sh", "-c",
                          R"(flock -n /run/lock/mesh_patch.lock sleep 1000 >/dev/null 2>&1 &
                             printf 'step="downloading"\npercent="10"\n' >/tmp/mesh_download)"})
                .status,
            0);
  ASSERT_TRUE(mesh_.WaitForStatus("downloading"));
  StartAndWait();  // answered with success: the last answer wins
  EXPECT_TRUE(mesh_.LogHas("webapi_upgrade_handler:96"));
  ExpectAllRun(kNext);
  EXPECT_TRUE(mesh_.WaitForStatus("none"));
}

// The request writes "upgrading" only after the mesh service accepted; a short update is over then.
TEST_F(Journey, AWordWrittenAfterTheUpdateWasOverIsEnded) {
  ASSERT_EQ(
      mesh_.Exec(0, {"sh", "-c", R"(printf 'step="upgrading"\npercent="0"\n' >/tmp/mesh_upgrade)"})
          .status,
      0);
  EXPECT_TRUE(test::WaitFor(
      [&] {
        const std::string file = mesh_.Exec(0, {"cat", "/tmp/mesh_upgrade"}).out;
        return file.find("failed") != std::string::npos ||
               file.find("finished") != std::string::npos;
      },
      MeshBox::kDeadline));
  EXPECT_TRUE(mesh_.WaitForStatus("none"));
}

TEST_F(Journey, ProgressIsAnsweredByTheNodeWhileTheMeshServiceIsOff) {
  mesh_.Event(0, "mesh-stop");
  EXPECT_TRUE(test::WaitFor(
      [&] {
        const Answer progress = mesh_.Cli({"progress"});
        return progress.status == 0 && progress.data.isMember("step") &&
               !progress.data.isMember("total_percentage");
      },
      MeshBox::kDeadline));
  EXPECT_TRUE(mesh_.LogHas("Progress from dbus error, fallback to KALO.Core.Upgrade"));
  EXPECT_EQ(mesh_.Cli({"progress", "--v1"}).Code(), 117);
  mesh_.Event(0, "mesh-start");
  EXPECT_TRUE(mesh_.WaitForStatus("none"));
}

TEST_F(Journey, TheUpdateGoesOnAfterTheCapsOwnRestart) {
  mesh_.UploadNext();
  const std::string boot = mesh_.Node(0)["boot_id"].asString();
  ASSERT_EQ(mesh_.Cli({"start"}).status, 0);
  // Power fails at the CAP while the satellites install.
  mesh_.Event(0, "offline");
  mesh_.Event(0, "online");
  EXPECT_TRUE(test::WaitFor(
      [&] {
        const Answer nodes = mesh_.Cli({"nodes"});
        return nodes.status == 0 && nodes.data["update_running"] == false &&
               nodes.data["nodes"][0]["boot_id"].asString() != boot &&
               mesh_.RunningVersion(0) == kNext;
      },
      MeshBox::kDeadline));
  ExpectAllRun(kNext);
  EXPECT_TRUE(mesh_.WaitForStatus("none"));
}

TEST_F(Journey, AHungServerIsAnOfflineNodeUntilItGoesOn) {
  mesh_.Event(2, "hang");
  EXPECT_TRUE(mesh_.WaitForStatus("mesh_system_error"));
  mesh_.Event(2, "resume");
  EXPECT_TRUE(mesh_.WaitForStatus("none"));
}

TEST_F(Journey, NothingStagedIsRefusedAndLeavesNoTrace) {
  const Answer start = mesh_.Cli({"start"});
  EXPECT_EQ(start.status, 3);
  EXPECT_EQ(start.Code(), 9001) << start.text;
  EXPECT_EQ(mesh_.Status()["status"], "none");
}

}  // namespace
}  // namespace kalo::journeys
