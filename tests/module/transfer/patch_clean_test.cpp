#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

using fake::ElementsAre;

class PatchCleanRequest : public fake::ModuleTest {
 protected:
  PatchCleanRequest() {
    platform.AddNode(0, "M1", 1);
    platform.AddNode(3, "M2", 1);
    platform.files["/tmp/mesh_patch"] = {
        {"patch_upload", "v"}, {"uploaded_list", " 0"}, {"avaliable_full", "true"}};
  }
  void Clean() { Call(WebapiUpgradePatchClean); }
};

TEST_F(PatchCleanRequest, ForgetsEverythingInItsOrder) {
  Clean();
  EXPECT_THAT(
      Lines(),
      ElementsAre("set /tmp/mesh_download step=canceled", "set /tmp/mesh_download percent=0",
                  "set /tmp/mesh_upgrade step=none", "set /tmp/mesh_upgrade percent=0", "client",
                  "node_infos", "access_infos", "send KALO.Core.Upgrade.Patch clean 1 0 3",
                  "clean_folder /volume1/@mesh_full", "clean_folder /volume1/@mesh_nano",
                  "remove /tmp/mesh_patch patch_upload", "remove /tmp/mesh_patch uploaded_list",
                  "success null"));
  EXPECT_EQ(platform.files["/tmp/mesh_patch"].count("avaliable_full"), 1U)
      << "what the check found stays";
}

TEST_F(PatchCleanRequest, TakesNoLock) {
  platform.lock_result = 0;
  Clean();
  EXPECT_THAT(Answers(), ElementsAre("success null"));
}

TEST_F(PatchCleanRequest, AFullFolderThatStaysEndsItBeforeTheSmallOne) {
  platform.stubborn_folders = {"/volume1/@mesh_full"};
  Clean();
  EXPECT_THAT(Answers(), ElementsAre("error 117 null"));
  EXPECT_THAT(Logs(), ElementsAre("3 Exception: Failed to clean full patch"));
  EXPECT_EQ(Lines("clean_folder").size(), 1U);
  EXPECT_EQ(platform.files["/tmp/mesh_patch"].count("patch_upload"), 1U);
  EXPECT_EQ(platform.files["/tmp/mesh_download"]["step"], "canceled");
  EXPECT_EQ(platform.files["/tmp/mesh_upgrade"]["step"], "none");
}

TEST_F(PatchCleanRequest, ASmallFolderThatStaysIsAFailure) {
  platform.stubborn_folders = {"/volume1/@mesh_nano"};
  Clean();
  EXPECT_THAT(Logs(), ElementsAre("3 Exception: Failed to clean nano patch"));
  EXPECT_THAT(Answers(), ElementsAre("error 117 null"));
}

TEST_F(PatchCleanRequest, KeysThatAreNotThereAreOnlyLogged) {
  platform.files.erase("/tmp/mesh_patch");
  Clean();
  EXPECT_THAT(Logs(),
              ElementsAre("3 Remove upload version error", "3 Remove upload version error"));
  EXPECT_THAT(Answers(), ElementsAre("success null"));
}

TEST_F(PatchCleanRequest, OnlyANegativeResultOfARemovalIsAFailure) {
  platform.results = {{"remove /tmp/mesh_patch patch_upload", 1},
                      {"remove /tmp/mesh_patch uploaded_list", 1}};
  Clean();
  EXPECT_THAT(Logs(), ElementsAre());
}

TEST_F(PatchCleanRequest, NodesThatCannotBeAskedAreAFailure) {
  platform.throwers["send"] = fake::Throws(std::runtime_error("no credentials"));
  Clean();
  EXPECT_THAT(Logs(), ElementsAre("3 Exception: no credentials"));
  EXPECT_THAT(Answers(), ElementsAre("error 117 null"));
}

TEST_F(PatchCleanRequest, ABadParameterHasACodeOfItsOwn) {
  platform.throwers["client"] = fake::Throws(WebapiParamException("bad"));
  Clean();
  EXPECT_THAT(Logs(), ElementsAre("3 Parameter Error: bad"));
  EXPECT_THAT(Answers(), ElementsAre("error 403 null"));
}

TEST_F(PatchCleanRequest, WhatIsNoStandardExceptionIsLeftToTheServer) {
  platform.throwers["client"] = fake::Throws(fake::NotStandard());
  EXPECT_THROW(Clean(), fake::NotStandard);
}

TEST_F(PatchCleanRequest, AProgressFileThatCannotBeWrittenIsAFailure) {
  platform.results["set /tmp/mesh_download step"] = -1;
  Clean();
  EXPECT_EQ(Answers().back(), "error 117 null");
  EXPECT_TRUE(Lines("send").empty());
}

}  // namespace
}  // namespace KALO::MESH::Webapi
