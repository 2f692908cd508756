#include "tests/module/patch/check_test.h"

namespace KALO::MESH::Webapi {
namespace {

using fake::ElementsAre;
using fake::IsEmpty;
using PatchInfo = UpgradeHandler::PatchInfo;

class UpdateFeedCheck : public CheckTest {
 protected:
  PatchInfo Check(bool is_auto = false) { return handler.PatchCheckImpl(is_auto); }
  // Models whose offers differ stand for nodes whose offers differ.
  void AddNode(int id, int build, const std::string& offer = "", int nano = 0) {
    const std::string unique = id == 0 ? "M1" : "M" + std::to_string(id + 1);
    platform.AddNode(id, unique, build, nano);
    if (!offer.empty()) Regular(unique, offer);
  }
};

TEST_F(UpdateFeedCheck, AsksTheRegularCheckAsTheNodeIs) {
  AddNode(0, 9355, "VXM 1.4.0-9400");
  platform.nano_number = 2;
  const PatchInfo info = Check(true);
  EXPECT_THAT(
      Lines(),
      ElementsAre("client", "node_infos", "access_infos",
                  "log 3 " + Lines("log 3")[0].substr(6),  // the version's own line
                  "regular_check auto 5 2 9355 M1 true", "build_num VXM 1.4.0-9400",
                  "build_num VXM 1.4.0-9400", "build_num VXM 1.4.0-9355", "client", "node_infos",
                  "access_infos", "nano_update M1 9400", "set /tmp/mesh_patch avaliable_full=true",
                  "set /tmp/mesh_patch patch_full=VXM 1.4.0-9400",
                  "get /etc.defaults/kaloinfo.conf unique 8192",
                  "set /tmp/mesh_patch uniques_full=M1  0;",
                  "set /tmp/mesh_patch avaliable_nano=true",
                  "set /tmp/mesh_patch patch_nano=VXM 1.4.0-9400 Update 2",
                  "get /etc.defaults/kaloinfo.conf unique 8192",
                  "set /tmp/mesh_patch uniques_nano=M1  0;"));
  EXPECT_EQ(info.version, "VXM 1.4.0-9400 Update 2");
  EXPECT_EQ(info.type, "smallupdate");
  EXPECT_EQ(info.build_num, 9400);
  EXPECT_EQ(info.nano_num, 2);
}

TEST_F(UpdateFeedCheck, TheLastArgumentIsWhetherTheBuildIsAbove9354) {
  AddNode(0, 9354);
  (void)Check();
  EXPECT_THAT(Lines("regular_check"), ElementsAre("regular_check manual 5 2 9354 M1 false"));
}

TEST_F(UpdateFeedCheck, AModelThatIsTooLongForItsFieldIsCut) {
  platform.AddNode(0, std::string(70, 'x'), 9400);
  (void)Check();
  EXPECT_THAT(Lines("regular_check"),
              ElementsAre("regular_check manual 5 2 9400 " + std::string(63, 'x') + " true"));
}

TEST_F(UpdateFeedCheck, AMeshWithoutNodesRecordsThatNothingIsAvailable) {
  EXPECT_FALSE(Check().available);
  EXPECT_EQ(Key("avaliable_full"), "false");
  EXPECT_EQ(Key("over_version"), "false");
}

TEST_F(UpdateFeedCheck, AVersionThatCannotBeReadEndsTheCheck) {
  AddNode(0, 9400);
  platform.node_infos.nodes[0].full_version = "1.4.0-9400";
  try {
    (void)Check();
    FAIL();
  } catch (const WebapiException& e) {
    EXPECT_STREQ(e.what(), "Parse version error");
  }
  EXPECT_THAT(Logs(), ElementsAre("3 Parse version 1.4.0-9400 for 0 fail"));
}

TEST_F(UpdateFeedCheck, ANodeAboveTheOfferEndsTheLoopAndDropsOffersTaken) {
  AddNode(0, 9340, "VXM 1.3.1-9346");
  AddNode(1, 9350, "VXM 1.3.1-9340");
  AddNode(2, 9340, "VXM 1.3.1-9346");
  const PatchInfo info = Check();
  EXPECT_FALSE(info.available);
  EXPECT_TRUE(info.over_version);
  EXPECT_EQ(Lines("regular_check").size(), 2U);
  EXPECT_EQ(Key("avaliable_full"), "false");
  EXPECT_EQ(Key("over_version"), "true");
  EXPECT_EQ(Key("avaliable_nano"), "-");
}

TEST_F(UpdateFeedCheck, TheOverVersionRecordKeepsTheKindOfAnEarlierNode) {
  AddNode(0, 9350, "VXM 1.3.1-9350 Update 2");
  AddNode(1, 9340, "VXM 1.3.1-9330");
  EXPECT_EQ(Check().type, "smallupdate");
  EXPECT_EQ(Key("avaliable_nano"), "false");
  EXPECT_EQ(Key("avaliable_full"), "-");
}

TEST_F(UpdateFeedCheck, AtAnEqualBuildTheOfferIsHeldAgainstTheHighestOfTheMesh) {
  AddNode(0, 9346, "VXM 1.3.1-9346 Update 2");
  AddNode(1, 9346, "", 3);
  EXPECT_TRUE(Check().over_version);  // newer than node 0, older than node 1
  EXPECT_EQ(Lines("regular_check").size(), 1U);
}

TEST_F(UpdateFeedCheck, TheHighestOfTheMeshIsNotTheLastNode) {
  AddNode(0, 9346, "VXM 1.3.1-9346 Update 4", 3);
  AddNode(1, 9346, "VXM 1.3.1-9346 Update 2", 1);
  EXPECT_TRUE(Check().over_version);  // newer than node 1, older than node 0
}

TEST_F(UpdateFeedCheck, WhatIsNotFoundIsNotOverVersion) {
  AddNode(0, 9350);
  platform.regular_offers["M1"] = {false, "hbx", "VXM 1.3.1-9340"};
  const PatchInfo info = Check();
  EXPECT_FALSE(info.over_version);
  EXPECT_EQ(Lines("execl").size(), 1U);
}

TEST_F(UpdateFeedCheck, TheOldestOfferIsTheCommonTarget) {
  AddNode(0, 9346, "VXM 1.3.1-9346 Update 2");
  AddNode(1, 9346, "VXM 1.3.1-9346 Update 1");
  const PatchInfo info = Check();
  EXPECT_EQ(info.version, "VXM 1.3.1-9346 Update 1");
  EXPECT_EQ(info.type, "smallupdate");
  EXPECT_EQ(info.nano_num, 1);
  EXPECT_EQ(Key("avaliable_nano"), "true");
  EXPECT_EQ(Key("patch_nano"), "VXM 1.3.1-9346 Update 1");
  EXPECT_EQ(Key("uniques_nano"), "M2  1;") << "a node with a newer offer stands in no list";
  EXPECT_EQ(Key("avaliable_full"), "-");
}

TEST_F(UpdateFeedCheck, AnOlderOfferOfALaterNodeIsKeptWhenANewerOneFollows) {
  AddNode(0, 9300, "VXM 1.3.1-9346");
  AddNode(1, 9300, "VXM 1.3.2-9400");
  EXPECT_EQ(Check().version, "VXM 1.3.1-9346 Update 0");
  EXPECT_EQ(Key("patch_full"), "VXM 1.3.1-9346");
  EXPECT_EQ(Key("uniques_full"), "M1  0;");
  EXPECT_EQ(Key("uniques_nano"), "M1  0;");
}

TEST_F(UpdateFeedCheck, OfTwoEqualOffersTheFirstCounts) {
  AddNode(0, 76000, "VXM 1.4.0-76010");
  AddNode(1, 76000);
  FeedItem("VXM 1.4.0-76010", 76010, R"("Beta")");
  const PatchInfo info = Check();
  EXPECT_EQ(info.version, "VXM 1.4.0-76010");
  EXPECT_FALSE(info.is_beta);
  EXPECT_EQ(Key("uniques_promo"), "M1  0; M2  1;");
}

TEST_F(UpdateFeedCheck, ANodeThatIsOfferedTheSmallUpdateItselfJoinsItsList) {
  AddNode(0, 9300, "VXM 1.3.1-9346");
  AddNode(1, 9346, "VXM 1.3.1-9346 Update 4");
  platform.nano_number = 4;
  EXPECT_EQ(Check().version, "VXM 1.3.1-9346 Update 4");
  EXPECT_EQ(Key("uniques_full"), "M1  0;");
  EXPECT_EQ(Key("uniques_nano"), "M1  0; M2  1;");
}

TEST_F(UpdateFeedCheck, ASmallUpdateOfItsOwnBuildDropsTheDerivedOne) {
  AddNode(0, 9300, "VXM 1.3.2-9400");
  AddNode(1, 9346, "VXM 1.3.1-9346 Update 1");
  const PatchInfo info = Check();
  EXPECT_EQ(info.version, "VXM 1.3.1-9346 Update 1");
  EXPECT_EQ(Key("patch_nano"), "VXM 1.3.1-9346 Update 1");
  EXPECT_EQ(Key("uniques_nano"), "M2  1;");
  EXPECT_EQ(Key("avaliable_full"), "-");
}

TEST_F(UpdateFeedCheck, ASmallUpdateOfAnotherBuildIsAFullOne) {
  AddNode(0, 9300, "VXM 1.3.1-9346 Update 2");
  platform.nano_number = 4;
  const PatchInfo info = Check();
  EXPECT_EQ(Key("avaliable_full"), "true");
  EXPECT_EQ(Key("patch_full"), "VXM 1.3.1-9346 Update 2");
  EXPECT_EQ(info.version, "VXM 1.3.1 Update 4");
}

TEST_F(UpdateFeedCheck, AnOlderFullUpdateReplacesASmallOne) {
  AddNode(0, 9346, "VXM 1.3.1-9346 Update 1");
  AddNode(1, 9300, "VXM 1.3.0-9340");
  const PatchInfo info = Check();
  EXPECT_EQ(info.version, "VXM 1.3.0-9340 Update 0");
  EXPECT_EQ(Key("patch_full"), "VXM 1.3.0-9340");
  EXPECT_EQ(Key("uniques_full"), "M2  1;");
  EXPECT_EQ(Key("avaliable_nano"), "true");
  EXPECT_EQ(Key("patch_nano"), "VXM 1.3.0-9340 Update 0");
  EXPECT_EQ(Key("uniques_nano"), "M2  1;");
}

TEST_F(UpdateFeedCheck, TheFeedsNumbersReplaceThoseOfAnOfferThatIsNotNewer) {
  AddNode(0, 76000, "VXM 1.4.0-76000");
  FeedItem("VXM 1.4.0-76010", 76010);
  EXPECT_EQ(Check().build_num, 76010);
  FeedItem("whatever", 76010);
  const PatchInfo info = Check();
  EXPECT_EQ(info.version, "whatever Update 0");
  EXPECT_EQ(info.build_num, 0);
}

TEST_F(UpdateFeedCheck, From76000OnItIsAPromotionWithoutASmallUpdate) {
  AddNode(0, 75000, "VXM 1.4.0-76000");
  const PatchInfo info = Check();
  EXPECT_EQ(info.type, "hbx");
  EXPECT_EQ(info.build_num, 76000);
  EXPECT_EQ(Key("avaliable_promo"), "true");
  EXPECT_EQ(Key("patch_promo"), "VXM 1.4.0-76000");
  EXPECT_EQ(Key("uniques_promo"), "M1  0;");
  EXPECT_EQ(Key("avaliable_full"), "-");
  EXPECT_EQ(Key("avaliable_nano"), "-");
  EXPECT_THAT(Lines("nano_update"), IsEmpty());
}

TEST_F(UpdateFeedCheck, At75999ItIsStillAFullUpdate) {
  AddNode(0, 75000, "VXM 1.3.9-75999");
  (void)Check();
  EXPECT_EQ(Key("patch_full"), "VXM 1.3.9-75999");
  EXPECT_EQ(Key("avaliable_promo"), "-");
}

TEST_F(UpdateFeedCheck, NothingNewIsSaidForEachNode) {
  AddNode(0, 9346, "VXM 1.3.1-9346");
  AddNode(3, 9346);
  EXPECT_FALSE(Check().available);
  EXPECT_TRUE(Logged("7 No new update for node 0"));
  EXPECT_TRUE(Logged("7 No new update for node 3"));
  EXPECT_EQ(Key("avaliable_full"), "false");
}

TEST_F(UpdateFeedCheck, AFailingWriteLeavesTheCheck) {
  AddNode(0, 75000, "VXM 1.4.0-76000");
  platform.results["set /tmp/mesh_patch patch_promo"] = -1;
  EXPECT_THROW((void)Check(), WebapiException);
  EXPECT_EQ(Key("avaliable_promo"), "true");
}

class NanoVersion : public CheckTest {
 protected:
  PatchInfo Derive(const std::string& version, int build) {
    PatchInfo full;
    full.version = version;
    full.build_num = build;
    PatchInfo nano;
    handler.CheckNanoVersion(full, nano);
    return nano;
  }
};

TEST_F(NanoVersion, KeepsAVersionWithoutAMark) {
  platform.AddNode(0, "M1", 9300);
  platform.AddNode(1, "M2", 9300);
  platform.nano_number = 3;
  const PatchInfo nano = Derive("VXM 1.3.1-9346", 9346);
  EXPECT_TRUE(nano.available);
  EXPECT_EQ(nano.version, "VXM 1.3.1-9346 Update 3");
  EXPECT_EQ(nano.type, "smallupdate");
  EXPECT_EQ(nano.build_num, 9346);
  EXPECT_EQ(nano.nano_num, 3);
  EXPECT_THAT(Lines("nano_update"), ElementsAre("nano_update M1 9346"));
}

TEST_F(NanoVersion, CutsAVersionWithAMarkByTheLengthBehindIt) {
  platform.AddNode(0, "M1", 9300);
  platform.nano_number = 4;
  EXPECT_EQ(Derive("VXM 1.3.1-9346 Update 2", 9346).version, "VXM 1.3.1 Update 4");
  EXPECT_EQ(Derive("V Update 22222222222222", 9346).version, "V Update 2222222222222 Update 4");
}

TEST_F(NanoVersion, IsAvailableWhateverTheNumberIs) {
  platform.AddNode(0, "M1", 9300);
  platform.nano_number = 0;
  EXPECT_TRUE(Derive("VXM 1.3.1-9346", 9346).available);
  platform.nano_number = -1;
  EXPECT_EQ(Derive("VXM 1.3.1-9346", 9346).version, "VXM 1.3.1-9346 Update -1");
}

TEST_F(NanoVersion, StaysUntouchedWithoutNodes) {
  EXPECT_FALSE(Derive("VXM 1.3.1-9346", 9346).available);
  EXPECT_THAT(Logs(), ElementsAre("7 Do not get nano version for VXM 1.3.1-9346"));
}

class ShouldUpdate : public CheckTest {
 protected:
  std::vector<std::int32_t> Ids(const std::string& answers, const std::string& version) {
    std::vector<std::int32_t> ids = {99};
    handler.CheckShouldUpdate(fake::FromText(answers), version, ids);
    return ids;
  }
  static std::string Answer(int node, const std::string& data) {
    return R"({"success":true,"node_id":)" + std::to_string(node) + R"(,"data":)" + data + "}";
  }
};

TEST_F(ShouldUpdate, NamesNodesWhoseVersionOccursInTheGivenOne) {
  const std::string answers = R"({"result":[)" +
                              Answer(3, R"({"available":false,"version":"9346"})") + "," +
                              Answer(4, R"({"available":true,"version":"9347"})") + "," +
                              Answer(5, R"({"available":null,"version":""})") + "]}";
  EXPECT_THAT(Ids(answers, "VXM 1.3.1-9346"), ElementsAre(3, 5));
}

TEST_F(ShouldUpdate, PassesOverAnswersThatSayNothing) {
  const std::string answers =
      R"({"result":[{"success":false,"node_id":1,"data":{"available":true,"version":""}},)" +
      Answer(2, R"({"version":""})") + "," + Answer(3, R"({"available":true})") + "," +
      Answer(4, "null") + "," + Answer(5, "[]") + "," +
      Answer(6, R"({"available":true,"version":{"x":1}})") + ",7," +
      Answer(8, R"({"available":true,"version":""})") + "]}";
  EXPECT_THAT(Ids(answers, "VXM 1.3.1-9346"), ElementsAre(8));
  EXPECT_THAT(Ids("{}", "x"), IsEmpty());
  EXPECT_THAT(Ids("[]", "x"), IsEmpty());
  EXPECT_THAT(Ids(R"({"result":"x"})", "x"), IsEmpty());
}

TEST_F(ShouldUpdate, RecordsThePatchForThoseNodes) {
  platform.AddNode(3, "M2", 9346);
  PatchInfo info;
  info.available = true;
  info.type = "hbx";
  info.version = "VXM 1.3.1-9346";
  handler.PatchAvailableToFile(
      fake::FromText(R"({"result":[)" + Answer(3, R"({"available":true,"version":"9346"})") + "]}"),
      info);
  EXPECT_EQ(Key("avaliable_full"), "true");
  EXPECT_EQ(Key("uniques_full"), "M2  3;");
}

TEST_F(ShouldUpdate, RecordsNoPromotionWhateverTheBuildIs) {
  PatchInfo info;
  info.available = true;
  info.version = "VXM 1.4.0-76000";
  info.build_num = 76000;
  handler.PatchAvailableToFile(Json::Value(), info);
  EXPECT_EQ(Key("avaliable_full"), "true");
  EXPECT_EQ(Key("avaliable_promo"), "-");
}

}  // namespace
}  // namespace KALO::MESH::Webapi
