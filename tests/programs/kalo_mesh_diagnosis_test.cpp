#include "programs/kalo-mesh/diagnosis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kalo::cli {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// A healthy mesh of two nodes, which each test makes worse.
class DiagnosisTest : public testing::Test {
 protected:
  DiagnosisTest() {
    state_["update_running"] = false;
    state_["status"]["status"] = "none";
    for (int id = 0; id < 2; ++id) {
      Json::Value node(Json::objectValue);
      node["id"] = id;
      node["name"] = id == 0 ? "Hall" : "Attic";
      node["version"] = "VXM 1.4.0-76000";
      node["online"] = true;
      state_["nodes"].append(node);
    }
    facts_["files"] = Json::Value(Json::arrayValue);
    facts_["locks"] = Json::Value(Json::arrayValue);
  }

  void Status(const char* word, const char* reason = nullptr) {
    state_["status"] = Json::Value(Json::objectValue);
    state_["status"]["status"] = word;
    if (reason != nullptr) state_["status"]["reason"] = reason;
  }
  void File(const char* path, const char* text) {
    Json::Value file(Json::objectValue);
    file["path"] = path;
    file["there"] = true;
    file["text"] = text;
    facts_["files"].append(file);
  }
  void Held(const char* path) {
    Json::Value lock(Json::objectValue);
    lock["path"] = path;
    lock["held"] = true;
    facts_["locks"].append(lock);
  }
  [[nodiscard]] Diagnosis Ask() const { return Diagnose(state_, facts_); }

  Json::Value state_{Json::objectValue};
  Json::Value facts_{Json::objectValue};
};

TEST_F(DiagnosisTest, AHealthyMesh) {
  EXPECT_EQ(
      Ask().verdict,
      "status says \"none\", because no update, no download, every node is there and runs the "
      "same version");
  EXPECT_THAT(Ask().findings, IsEmpty());
}

TEST_F(DiagnosisTest, AnAutomaticUpdateIsKnownByItsLock) {
  Status("upgrading");
  Held("/run/kalo/auto_update.lock");
  EXPECT_THAT(Ask().verdict, HasSubstr("/run/kalo/auto_update.lock is held"));
}

TEST_F(DiagnosisTest, AnUpdateIsKnownByItsFileAndWhoRunsIt) {
  Status("upgrading");
  File("/tmp/mesh_upgrade", "step=\"upgrading\"\npercent=\"40\"\n");
  EXPECT_THAT(Ask().verdict, HasSubstr("which the mesh service will end in a moment"));
  state_["update_running"] = true;
  EXPECT_THAT(Ask().verdict, HasSubstr("step=\"upgrading\" percent=\"40\", as the mesh service "
                                       "runs an update"));
  facts_["equal_update_runs"] = true;
  EXPECT_THAT(Ask().verdict, HasSubstr("brought to one version"));
}

TEST_F(DiagnosisTest, ANodeThatIsAwayIsNamedWithWhatToDo) {
  Status("mesh_system_error", "node_offline");
  state_["nodes"][1]["online"] = false;
  EXPECT_THAT(Ask().verdict, HasSubstr("because node 1 (Attic) does not answer"));
  EXPECT_THAT(Ask().findings,
              ElementsAre("node 1 (Attic) does not answer: look at its power and its connection"));
}

TEST_F(DiagnosisTest, AMeshThatIsStillAsked) {
  Status("mesh_system_error", "mesh_status_syncing");
  EXPECT_THAT(Ask().verdict, HasSubstr("has not asked every node once"));
}

TEST_F(DiagnosisTest, DifferentVersionsAreListed) {
  Status("mesh_version_not_equal");
  state_["nodes"][1]["version"] = "VXM 1.4.0-76010";
  EXPECT_THAT(Ask().verdict,
              HasSubstr("node 0 (Hall) VXM 1.4.0-76000, node 1 (Attic) VXM 1.4.0-76010"));
}

TEST_F(DiagnosisTest, AFinishedDownloadGoesToTheNodes) {
  Status("downloading");
  File("/tmp/mesh_download", "step=\"finished\"\npercent=\"100\"\n");
  EXPECT_THAT(Ask().verdict, HasSubstr("the files are there and go to the nodes"));
}

TEST_F(DiagnosisTest, ADownloadWithoutItsLockHasDied) {
  Status("downloading");
  File("/tmp/mesh_download", "step=\"downloading\"\npercent=\"7\"\n");
  EXPECT_THAT(Ask().findings, ElementsAre(HasSubstr("the download died")));
  Held("/var/lock/mesh_patch.lock");
  EXPECT_THAT(Ask().findings, IsEmpty());
}

TEST_F(DiagnosisTest, ADownloadThatFailedForSpaceSaysHowMuch) {
  File("/tmp/mesh_download", "step=\"failed\"\npercent=\"0\"\nneed_bytes=\"5000\"\n");
  EXPECT_THAT(Ask().findings, ElementsAre(HasSubstr("it needs 5000 bytes free")));
}

TEST_F(DiagnosisTest, ABadPercentageMakesTheStatusFail) {
  state_["status"] = Json::Value(Json::objectValue);
  state_["status"]["error"] = 117;
  File("/tmp/mesh_upgrade", "step=\"upgrading\"\npercent=\"many\"\n");
  EXPECT_EQ(
      Ask().verdict,
      "status fails with error 117, because /tmp/mesh_upgrade says percent=\"many\", which is "
      "no number from 0 to 100");
  EXPECT_THAT(Ask().findings, ElementsAre(HasSubstr("remove the file")));
}

TEST_F(DiagnosisTest, AFileThatCannotBeReadIsNamed) {
  state_["status"] = Json::Value(Json::objectValue);
  state_["status"]["error"] = 117;
  File("/tmp/mesh_download", "");
  facts_["files"][0]["error"] = "Too many levels of symbolic links";
  EXPECT_THAT(Ask().verdict, HasSubstr("/tmp/mesh_download cannot be read: Too many levels"));
}

TEST_F(DiagnosisTest, ReadyWithoutAPatchIsNone) {
  File("/tmp/mesh_upgrade", "step=\"ready_upgrade\"\npercent=\"0\"\n");
  EXPECT_THAT(Ask().findings, ElementsAre(HasSubstr("/tmp/mesh_patch names no patch")));
  File("/tmp/mesh_patch", "avaliable_promo=\"true\"\n");
  Status("ready_upgrade");
  EXPECT_THAT(Ask().verdict, HasSubstr("step=\"ready_upgrade\""));
  EXPECT_THAT(Ask().findings, IsEmpty());
}

TEST_F(DiagnosisTest, WhatNodesHoldAndWhatFailedIsTold) {
  state_["nodes"][1]["staged_version"] = "VXM 1.4.0-76010";
  state_["nodes"][1]["error"] = "node 1 (Attic) fell back: it runs the old version";
  EXPECT_THAT(Ask().findings, ElementsAre(HasSubstr("the last update: node 1 (Attic) fell back"),
                                          HasSubstr("holds VXM 1.4.0-76010 ready")));
}

}  // namespace
}  // namespace kalo::cli
