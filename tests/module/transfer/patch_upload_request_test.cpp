#include <stdexcept>

#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

// A mesh of two models: node 0 and node 2 are of model A, node 1 of model B.
class PatchUploadRequest : public fake::ModuleTest {
 protected:
  void SetUp() override {
    platform.AddNode(0, "A", 76000);
    platform.AddNode(1, "B", 76000);
    platform.AddNode(2, "A", 76000);
    for (const int id : {0, 1, 2}) Answer(id, R"({"success": true, "data": {"n": 1}})");
    HandIn("A", 76010, 0);
    HandIn("B", 76010, 0);
  }
  void Answer(int id, const std::string& envelope) {
    platform.upload_envelopes[id] = fake::FromText(envelope);
  }
  // A file of this model as the server stored it, and what is in it.
  void HandIn(const std::string& unique, int build, int nano) {
    parameters[unique + "_file"] = "new.pat";
    parameters[unique + "_file_tmp"] = "/up/" + unique;
    platform.plain_files.insert("/up/" + unique);
    const std::string moved = "/up/" + unique + "_new.pat";
    platform.patches[moved] = {true,   moved, "VXM 1.4.0-" + std::to_string(build),
                               unique, build, nano};
  }
  void Upload() { Call(WebapiUpgradePatchUpload, fake::ToText(parameters)); }
  void ExpectRefused(const std::string& answer, const std::vector<std::string>& logs) {
    EXPECT_THAT(Answers(), fake::ElementsAre(answer));
    std::vector<std::string> errors;
    for (const std::string& line : Logs()) {
      if (line.starts_with("3 ")) errors.push_back(line);
    }
    EXPECT_EQ(errors, logs);
  }
  Json::Value parameters{Json::objectValue};
};

TEST_F(PatchUploadRequest, SendsEveryNodeItsPatchTheRouterLast) {
  Upload();
  const std::string params = R"({"base_ver_num":""} )";
  const auto log = [](const std::string& text) {
    return fake::MatchesRegex("log [37] [0-9]+ " + text);
  };
  EXPECT_THAT(
      Lines(),
      fake::ElementsAre(
          "auto_updating", "client", "node_infos", "access_infos", "string A_file",
          "string A_file_tmp", log(R"(File \[new.pat\] \[/up/A\])"), "exist /up/A",
          "rename /up/A /up/A_new.pat", "parse_patch /up/A_new.pat", log("A 76010-0"),
          "string B_file", "string B_file_tmp", log(R"(File \[new.pat\] \[/up/B\])"), "exist /up/B",
          "rename /up/B /up/B_new.pat", "parse_patch /up/B_new.pat", log("B 76010-0"),
          log(R"(Add node 0 \(A 76000-0\) to upload list)"),
          log(R"(Add node 2 \(A 76000-0\) to upload list)"),
          log(R"(Add node 1 \(B 76000-0\) to upload list)"), "lock /var/lock/mesh_patch.lock 1 -1",
          "send KALO.Core.Upgrade.Patch clean 1 0 1 2", "unlink /tmp/mesh_download",
          "unlink /tmp/mesh_upgrade", log("Start Upload Patch"),
          "upload 2 KALO.Core.Upgrade.Patch upload 1 " + params + "/up/A_new.pat",
          "upload 1 KALO.Core.Upgrade.Patch upload 1 " + params + "/up/B_new.pat",
          log("Is going to remove /up/B_new.pat"), "unlink /up/B_new.pat",
          "upload 0 KALO.Core.Upgrade.Patch upload 1 " + params + "/up/A_new.pat",
          "unlink /up/A_new.pat", "unlink /up/A_new.pat", "unlink /up/B_new.pat",
          "set /tmp/mesh_patch patch_upload=VXM 1.4.0-76010",
          "set /tmp/mesh_patch uploaded_list= 0 2 1", R"(success {"n":1})", "unlock 41"));
}

TEST_F(PatchUploadRequest, AnAutomaticUpdateRefusesBeforeAnythingElse) {
  platform.auto_updating = true;
  Upload();
  EXPECT_THAT(Lines(),
              fake::ElementsAre(
                  "auto_updating",
                  fake::MatchesRegex("log 3 [0-9]+ Is Autoupdating, can not upload patch now"),
                  "error 5202 null"));
}

TEST_F(PatchUploadRequest, EveryModelMustBeGivenAPatch) {
  for (const char* missing : {"B_file", "B_file_tmp"}) {
    SetUp();
    platform.journal.Clear();
    parameters.removeMember(missing);
    Upload();
    ExpectRefused("error 1003 null",
                  {"3 No patch for B", "3 Patch upload error, due to Patch missed"});
    EXPECT_THAT(Lines("unlink"), fake::ElementsAre("unlink /up/A_new.pat"));
    EXPECT_THAT(Lines("lock"), fake::IsEmpty());
  }
}

TEST_F(PatchUploadRequest, AMissingFileIsRefused) {
  platform.plain_files.erase("/up/B");
  Upload();
  ExpectRefused("error 1003 null",
                {"3 File not exist at /up/B", "3 Patch upload error, due to File not exist"});
  EXPECT_THAT(Lines("unlink"), fake::ElementsAre("unlink /up/A_new.pat"));
}

TEST_F(PatchUploadRequest, ARenameThatFailsIsAGeneralFailure) {
  for (const int result : {-1, 1}) {
    platform.journal.Clear();
    platform.rename_result = result;
    Upload();
    ExpectRefused("error 117 null", {"3 rename from [/up/A] to [/up/A_new.pat] failed",
                                     "3 Patch upload error, due to Rename file failed"});
  }
}

TEST_F(PatchUploadRequest, AFileWithoutAFolderIsOneOfTheCurrentFolder) {
  parameters["A_file_tmp"] = "stored";
  platform.plain_files.insert("stored");
  platform.patches["./A_new.pat"] = platform.patches["/up/A_new.pat"];
  platform.patches["./A_new.pat"].path = "./A_new.pat";
  Upload();
  EXPECT_THAT(Lines("rename"), ::testing::Contains("rename stored ./A_new.pat"));
  EXPECT_THAT(Answers(), fake::ElementsAre(R"(success {"n":1})"));
}

TEST_F(PatchUploadRequest, AWrongPatchIsRefused) {
  const std::string moved = "/up/B_new.pat";
  const std::vector<std::string> logs = {"3 /up/B_new.pat is an incorrect patch",
                                         "3 Patch upload error, due to Patch incorrect"};
  platform.patches[moved].unique = "A";
  Upload();
  ExpectRefused("error 1003 null", logs);
  SetUp();
  platform.journal.Clear();
  platform.patches[moved].valid = false;
  Upload();
  ExpectRefused("error 1003 null", logs);
  EXPECT_THAT(Lines("unlink"), fake::ElementsAre("unlink /up/A_new.pat", "unlink /up/B_new.pat"));
}

TEST_F(PatchUploadRequest, AnInvalidPatchIsDeletedWhereItWasMovedTo) {
  platform.patches["/up/A_new.pat"] = {};
  Upload();
  ExpectRefused("error 1003 null", {"3 /up/A_new.pat is an incorrect patch",
                                    "3 Patch upload error, due to Patch incorrect"});
  EXPECT_THAT(Lines("unlink"), fake::ElementsAre("unlink /up/A_new.pat"));
}

TEST_F(PatchUploadRequest, AFileThatCannotBeParsedStays) {
  platform.throwers["parse_patch /up/B"] = fake::Throws(std::runtime_error("unreadable"));
  Upload();
  ExpectRefused("error 117 null", {"3 Patch upload error, due to unreadable"});
  EXPECT_THAT(Lines("unlink"), fake::ElementsAre("unlink /up/A_new.pat"));
}

TEST_F(PatchUploadRequest, ABadParameterOutsideBothStagesIsAGeneralFailure) {
  for (const char* call : {"auto_updating", "client", "lock", "set /tmp/mesh_patch"}) {
    SetUp();
    platform.journal.Clear();
    platform.throwers = {{call, fake::Throws(WebapiParamException("elsewhere"))}};
    Upload();
    EXPECT_THAT(Answers(), fake::ElementsAre("error 117 null")) << call;
    EXPECT_EQ(Logs().back(), "3 Patch upload error, due to elsewhere") << call;
  }
}

TEST_F(PatchUploadRequest, PatchesOfDifferentVersionsAreRefusedAndDeleted) {
  for (const auto& [build, nano] : {std::pair{76011, 0}, std::pair{76010, 1}}) {
    HandIn("A", 76010, 0);
    HandIn("B", build, nano);
    platform.journal.Clear();
    Upload();
    ExpectRefused("error 1001 null", {"3 expect patch version is 76010-0, but " +
                                          std::to_string(build) + "-" + std::to_string(nano),
                                      "3 Patch upload error, due to Patch Version not equal"});
    EXPECT_THAT(Lines("unlink"), fake::ElementsAre("unlink /up/A_new.pat", "unlink /up/B_new.pat"));
  }
}

TEST_F(PatchUploadRequest, WithoutAnOlderNodeNothingIsLocked) {
  HandIn("A", 76000, 0);
  HandIn("B", 76000, 0);
  Upload();
  ExpectRefused("error 1002 null", {"3 No patch to upload"});
  EXPECT_THAT(Lines("unlink"), fake::ElementsAre("unlink /up/A_new.pat", "unlink /up/B_new.pat"));
  EXPECT_THAT(Lines("lock"), fake::IsEmpty());
  EXPECT_THAT(Lines("unlock"), fake::IsEmpty());
}

TEST_F(PatchUploadRequest, ANodeIsOlderByBuildThenByNano) {
  platform.AddNode(0, "A", 76010, 1);
  platform.AddNode(1, "B", 76011, 0);
  platform.AddNode(2, "A", 76010, 3);
  platform.AddNode(3, "A", 76000, 5);
  Answer(3, R"({"success": true, "data": {}})");
  HandIn("A", 76010, 2);
  HandIn("B", 76010, 2);
  Upload();
  EXPECT_THAT(Lines("set /tmp/mesh_patch uploaded_list"),
              fake::ElementsAre("set /tmp/mesh_patch uploaded_list= 0 3"));
}

TEST_F(PatchUploadRequest, ABusyLockKeepsTheFilesAndUnlocksNothing) {
  platform.lock_result = 0;
  Upload();
  ExpectRefused("error 9001 null", {"3 Get patch lock fail"});
  EXPECT_THAT(Lines("unlink"), fake::IsEmpty());
  EXPECT_THAT(Lines("unlock"), fake::ElementsAre("unlock -1"));
  EXPECT_EQ(Lines().back(), "unlock -1");
}

TEST_F(PatchUploadRequest, ACleanUpThatThrowsIsOnlyLogged) {
  for (const auto& thrower :
       {fake::Throws(std::runtime_error("x")), fake::Throws(fake::NotStandard())}) {
    SetUp();
    platform.journal.Clear();
    platform.throwers["send"] = thrower;
    Upload();
    EXPECT_THAT(Answers(), fake::ElementsAre(R"(success {"n":1})"));
    EXPECT_THAT(Logs(), ::testing::Contains("3 Failed to cleanup patchs"));
  }
}

TEST_F(PatchUploadRequest, AFailedNodesNumberIsTheAnswerAndTheOthersStillGetTheirs) {
  Answer(2, R"({"success": false, "error": {"code": 5224}})");
  Upload();
  EXPECT_THAT(Answers(), fake::ElementsAre("error 5224 null"));
  EXPECT_EQ(Lines("upload").size(), 3U);
  EXPECT_THAT(Lines("set "), fake::IsEmpty());
  EXPECT_THAT(Logs(), ::testing::Contains("3 node 2 upload failed with errno 5224"));
  EXPECT_EQ(Logs().back(), "3 Upload has failed");
  EXPECT_EQ(Lines().back(), "unlock 41");
  EXPECT_EQ(Lines("unlink /up").size(), 4U);
}

TEST_F(PatchUploadRequest, AnUnusableAnswerIs9002) {
  platform.upload_envelopes.erase(2);
  Upload();
  EXPECT_THAT(Answers(), fake::ElementsAre("error 9002 null"));
  EXPECT_THAT(Logs(), ::testing::Contains("3 node 2 upload failed with invalid response"));
}

TEST_F(PatchUploadRequest, TheLastFailingWorkDecides) {
  Answer(2, R"({"success": false, "error": {"code": 5224}})");
  Answer(1, R"({"success": false, "error": {"code": 5221}})");
  Upload();
  EXPECT_THAT(Answers(), fake::ElementsAre("error 5221 null"));
}

TEST_F(PatchUploadRequest, AVersionNotWrittenIsAGeneralFailure) {
  platform.results["set /tmp/mesh_patch patch_upload"] = -1;
  Upload();
  EXPECT_THAT(Answers(), fake::ElementsAre("error 117 null"));
  EXPECT_EQ(Logs().back(), "3 Failed to write version to patch info file");
  EXPECT_THAT(Lines("set /tmp/mesh_patch uploaded_list"), fake::IsEmpty());
  EXPECT_EQ(Lines().back(), "unlock 41");
}

TEST_F(PatchUploadRequest, AListNotWrittenKeepsTheVersion) {
  platform.results["set /tmp/mesh_patch uploaded_list"] = -1;
  Upload();
  EXPECT_THAT(Answers(), fake::ElementsAre("error 117 null"));
  const std::vector<std::string> logs = Logs();
  EXPECT_EQ(std::count(logs.begin(), logs.end(), "3 Failed to write uploaded list"), 2)
      << "who writes it and who asked for it say so";
  EXPECT_EQ(platform.files["/tmp/mesh_patch"]["patch_upload"], "VXM 1.4.0-76010");
  EXPECT_THAT(Lines("remove"), fake::IsEmpty());
}

TEST_F(PatchUploadRequest, AResultOfZeroIsNoFailureOfAWrite) {
  platform.results = {{"set /tmp/mesh_patch patch_upload", 0},
                      {"set /tmp/mesh_patch uploaded_list", 0}};
  Upload();
  EXPECT_THAT(Answers(), fake::ElementsAre(R"(success {"n":1})"));
}

TEST_F(PatchUploadRequest, AnswersWithTheFirstDataThatANodeGave) {
  Answer(0, R"({"success": true, "data": null})");
  Answer(2, R"({"success": true, "data": {"from": 2}})");
  Upload();
  EXPECT_THAT(Answers(), fake::ElementsAre(R"(success {"from":2})"));
}

TEST_F(PatchUploadRequest, WithoutAnyDataTheListIsForgotten) {
  for (const int id : {0, 1, 2}) Answer(id, R"({"success": true, "data": null})");
  Upload();
  EXPECT_THAT(Answers(), fake::ElementsAre("error 117 null"));
  EXPECT_EQ(Logs().back(), "3 Failed to get response result data from upload");
  EXPECT_THAT(Lines("remove"), fake::ElementsAre("remove /tmp/mesh_patch uploaded_list"));
  EXPECT_TRUE(platform.files["/tmp/mesh_patch"].contains("patch_upload"));
}

TEST_F(PatchUploadRequest, WithoutANodeListItIsAGeneralFailure) {
  platform.node_infos.code = 1;
  Upload();
  ExpectRefused("error 117 null", {"3 Failed to get node infos",
                                   "3 Patch upload error, due to Failed to get node infos"});
}

TEST_F(PatchUploadRequest, AnyOtherExceptionDeletesTheFilesAndFreesTheLock) {
  for (const auto& thrower :
       {fake::Throws(std::runtime_error("x")), fake::Throws(fake::NotStandard())}) {
    SetUp();
    platform.journal.Clear();
    platform.throwers["set /tmp/mesh_patch"] = thrower;
    Upload();
    EXPECT_THAT(Answers(), fake::ElementsAre("error 117 null"));
    EXPECT_THAT(Lines("unlock"), fake::ElementsAre("unlock 41"));
    EXPECT_TRUE(platform.plain_files.empty());
  }
  EXPECT_EQ(Logs().back(), "3 Patch upload error, due to an unknown exception");
}

TEST_F(PatchUploadRequest, AnUploadThatThrowsNoStandardExceptionFreesTheLock) {
  platform.throwers["upload 1"] = fake::Throws(fake::NotStandard());
  Upload();
  EXPECT_THAT(Answers(), fake::ElementsAre("error 117 null"));
  EXPECT_THAT(Lines("unlock"), fake::ElementsAre("unlock 41"));
}

TEST_F(PatchUploadRequest, AMeshWithoutNodesNeedsNoPatch) {
  platform.node_infos.nodes.clear();
  Upload();
  EXPECT_THAT(Answers(), fake::ElementsAre("error 1002 null"));
}

}  // namespace
}  // namespace KALO::MESH::Webapi
