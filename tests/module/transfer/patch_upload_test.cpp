#include <stdexcept>

#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

using UploadWork = UpgradeHandler::UploadWork;

class PatchUploads : public fake::ModuleTest {
 protected:
  void SetUp() override {
    for (const int id : {0, 3, 5}) {
      platform.AddNode(id, "M", 1);
      platform.upload_envelopes[id] = fake::FromText(R"({"success": true, "data": {}})");
    }
  }
  UploadWork Work(int id, const std::string& path, const std::string& base = "") {
    UploadWork work = handler.createUploadWork(id, path, base);
    platform.journal.Clear();
    return work;
  }
  static std::string Upload(int id, const std::string& path, const std::string& base = "") {
    return "upload " + std::to_string(id) +
           R"( KALO.Core.Upgrade.Patch upload 1 {"base_ver_num":")" + base + "\"} " + path;
  }
};

TEST_F(PatchUploads, AWorkHoldsItsOwnCopyOfTheNode) {
  KALO::MESH::SDK::Client::NodeInfo info;
  info.unique = "X";
  UpgradeHandler::UpdateNode node(8, info);
  const UploadWork work = handler.createUploadWork(node, "/p", "76000");
  EXPECT_NE(work.node.get(), &node);
  EXPECT_EQ(work.node->GetNodeID(), 8);
  EXPECT_EQ(work.patchPath, "/p");
  EXPECT_EQ(work.baseVerNum, "76000");
  EXPECT_FALSE(work.response.IsValid());
  const UploadWork copy = work;
  EXPECT_EQ(copy.node.get(), work.node.get());
}

TEST_F(PatchUploads, AnIdOfNoNodeFails) {
  try {
    handler.createUploadWork(9, "/p", "");
    ADD_FAILURE();
  } catch (const WebapiException& e) {
    EXPECT_STREQ(e.what(), "Failed to create upload work");
  }
  EXPECT_THAT(Logs(), fake::ElementsAre("3 Failed to find update node for node [9]"));
}

TEST_F(PatchUploads, EveryWorkIsUploadedInOrderAndKeepsItsAnswer) {
  std::vector<UploadWork> works = {Work(5, "/a", "76000"), Work(3, "/b")};
  handler.UploadPatch(works);
  EXPECT_THAT(Lines(), fake::ElementsAre(fake::MatchesRegex("log 7 [0-9]+ Start Upload Patch"),
                                         Upload(5, "/a", "76000"), Upload(3, "/b")));
  EXPECT_TRUE(works[0].response.IsSuccess());
  EXPECT_TRUE(works[1].response.IsSuccess());
}

TEST_F(PatchUploads, AnExceptionIsLoggedAndTheWalkGoesOn) {
  platform.upload_envelopes.erase(5);
  std::vector<UploadWork> works = {Work(5, "/a"), Work(3, "/b")};
  handler.UploadPatch(works);
  EXPECT_THAT(Logs(), fake::ElementsAre("7 Start Upload Patch", "3 Exception: no route"));
  EXPECT_FALSE(works[0].response.IsValid());
  EXPECT_TRUE(works[1].response.IsSuccess());
}

TEST_F(PatchUploads, TheRouterComesLastAfterTheOtherFilesWentAway) {
  platform.upload_envelopes.erase(5);
  std::vector<UploadWork> works = {Work(0, "/cap"), Work(5, "/a"), Work(3, "/cap"), Work(3, "/b")};
  handler.UploadPatch(works);
  const auto lines = Lines();
  EXPECT_THAT(lines, fake::ElementsAre(
                         fake::MatchesRegex("log 7 [0-9]+ Start Upload Patch"), Upload(5, "/a"),
                         fake::MatchesRegex("log 3 [0-9]+ Exception: no route"), Upload(3, "/cap"),
                         Upload(3, "/b"), fake::MatchesRegex("log 3 [0-9]+ Is going to remove /a"),
                         "unlink /a", fake::MatchesRegex("log 3 [0-9]+ Is going to remove /b"),
                         "unlink /b", Upload(0, "/cap")));
}

TEST_F(PatchUploads, OfSeveralWorksForTheRouterOnlyTheLastIsSent) {
  std::vector<UploadWork> works = {Work(0, "/one"), Work(0, "/two")};
  handler.UploadPatch(works);
  EXPECT_THAT(Lines("upload"), fake::ElementsAre(Upload(0, "/two")));
  EXPECT_THAT(Lines("unlink"), fake::ElementsAre("unlink /one"));
  EXPECT_FALSE(works[0].response.IsValid());
}

TEST_F(PatchUploads, EmptyPathsAreTheSamePath) {
  std::vector<UploadWork> works = {Work(3, ""), Work(0, "")};
  handler.UploadPatch(works);
  EXPECT_THAT(Lines("unlink"), fake::IsEmpty());
}

TEST_F(PatchUploads, TheResultListsTheSucceededNodesInOrder) {
  std::vector<UploadWork> works = {Work(5, "/a"), Work(3, "/a")};
  handler.UploadPatch(works);
  EXPECT_TRUE(handler.UploadResultToFile(works));
  EXPECT_THAT(Lines("set "), fake::ElementsAre("set /tmp/mesh_patch uploaded_list= 5 3"));
}

TEST_F(PatchUploads, AFailedNodeIsLoggedAndTheListIsWrittenAllTheSame) {
  platform.upload_envelopes[5] = fake::FromText(R"({"success": false, "error": {"code": 1}})");
  std::vector<UploadWork> works = {Work(5, "/a"), Work(3, "/a")};
  handler.UploadPatch(works);
  EXPECT_FALSE(handler.UploadResultToFile(works));
  EXPECT_EQ(Logs().back(), "3 5 is failed");
  EXPECT_THAT(Lines("set "), fake::ElementsAre("set /tmp/mesh_patch uploaded_list= 3"));
}

TEST_F(PatchUploads, NoSuccessAtAllIsAnEmptyList) {
  EXPECT_FALSE(handler.UploadResultToFile({Work(5, "/a")}));
  EXPECT_THAT(Lines("set "), fake::ElementsAre("set /tmp/mesh_patch uploaded_list="));
}

TEST_F(PatchUploads, AListThatCannotBeWrittenFailsOnlyBelowZero) {
  std::vector<UploadWork> works = {Work(3, "/a")};
  handler.UploadPatch(works);
  platform.results["set /tmp/mesh_patch uploaded_list"] = 0;
  EXPECT_TRUE(handler.UploadResultToFile(works));
  platform.results["set /tmp/mesh_patch uploaded_list"] = -1;
  EXPECT_FALSE(handler.UploadResultToFile(works));
  EXPECT_EQ(Logs().back(), "3 Failed to write uploaded list");
}

}  // namespace
}  // namespace KALO::MESH::Webapi
