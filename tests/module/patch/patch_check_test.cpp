#include "tests/module/patch/check_test.h"

namespace KALO::MESH::Webapi {
namespace {

using fake::ElementsAre;
using fake::IsEmpty;

constexpr const char* kRaise =
    "execl /usr/kalo/bin/kaloappnotify 187 -c KALO.WDX.PQMAdminCenter.Instance -f "
    "KALO.WDX.PQMAdminCenter.Administration.Main -u 1 @administrators";
constexpr const char* kClear =
    "execl /usr/kalo/bin/kaloappnotify 187 -c KALO.WDX.PQMAdminCenter.Instance -f "
    "KALO.WDX.PQMAdminCenter.Administration.Main -r @administrators";

class PatchCheckRequest : public CheckTest {
 protected:
  PatchCheckRequest() { platform.AddNode(0, "M1", 9346); }

  // @return the only answer.
  std::string Check(const std::string& parameters = "{}") {
    platform.journal.Clear();
    Call(WebapiUpgradePatchCheck, parameters);
    const std::vector<std::string> answers = Answers();
    EXPECT_EQ(answers.size(), 1U);
    return answers.empty() ? "" : answers.back();
  }
  void Downloaded(const std::string& version) {
    platform.files["/tmp/mesh_download"] = {{"step", "finished"}, {"version", version}};
    platform.files["/tmp/mesh_upgrade"] = {{"step", "ready_upgrade"}};
  }
};

TEST_F(PatchCheckRequest, ClearsTheOldRecordsFirstAndKeepsTheGroups) {
  platform.files["/tmp/mesh_patch"] = {{"avaliable_promo", "true"},
                                       {"patch_promo", "old"},
                                       {"uniques_promo", "M1  0;"},
                                       {"patch_upload", "kept"}};
  (void)Check();
  const std::vector<std::string> lines = Lines();
  ASSERT_GT(lines.size(), 9U);
  EXPECT_THAT(
      std::vector<std::string>(lines.begin(), lines.begin() + 10),
      ElementsAre("bool auto", "auto_updating", "remove /tmp/mesh_patch avaliable_full",
                  "remove /tmp/mesh_patch patch_full", "remove /tmp/mesh_patch avaliable_nano",
                  "remove /tmp/mesh_patch over_version", "remove /tmp/mesh_patch patch_nano",
                  "remove /tmp/mesh_patch avaliable_promo", "remove /tmp/mesh_patch patch_promo",
                  "client"));
  EXPECT_EQ(Key("uniques_promo"), "M1  0;");
  EXPECT_EQ(Key("patch_upload"), "kept");
  EXPECT_EQ(Key("patch_promo"), "-");
}

TEST_F(PatchCheckRequest, OnlyOtherFailuresThanAMissingKeyAreLogged) {
  const std::vector<std::string> keys = {"avaliable_full", "patch_full", "avaliable_nano",
                                         "over_version",   "patch_nano", "avaliable_promo",
                                         "patch_promo"};
  for (const std::string& key : keys) platform.results["remove /tmp/mesh_patch " + key] = -1;
  platform.override_errno = 2;
  (void)Check();
  for (const std::string& line : Logs()) EXPECT_EQ(line.find("Remove"), std::string::npos) << line;
  platform.override_errno = 13;
  for (const std::string& key : keys) platform.results["remove /tmp/mesh_patch " + key] = 0;
  (void)Check();
  for (const std::string& line : Logs()) EXPECT_EQ(line.find("Remove"), std::string::npos) << line;
  for (const std::string& key : keys) platform.results["remove /tmp/mesh_patch " + key] = -1;
  EXPECT_EQ(Check(), R"(success {"available":false,"over_version":false})");
  std::vector<std::string> removals;
  for (const std::string& line : Logs()) {
    if (line.find("Remove") != std::string::npos) removals.push_back(line);
  }
  EXPECT_THAT(
      removals,
      ElementsAre("3 Remove full available error (13)", "3 Remove full version error (13)",
                  "3 Remove nano available error (13)", "3 Remove over version error (13)",
                  "3 Remove nano version error (13)", "3 Remove promotion available error (13)",
                  "3 Remove promotion version error (13)"));
}

TEST_F(PatchCheckRequest, NothingFoundTakesTheNotificationBack) {
  EXPECT_EQ(Check(), R"(success {"available":false,"over_version":false})");
  EXPECT_THAT(LinesFrom("execl /usr/kalo/bin/kaloapp"),
              ElementsAre(kClear, R"(success {"available":false,"over_version":false})"));
  EXPECT_THAT(Lines("info_set"), IsEmpty()) << "what was announced stays announced";
}

TEST_F(PatchCheckRequest, TellsThatANodeIsNewer) {
  Regular("M1", "VXM 1.3.1-9340");
  EXPECT_EQ(Check(), R"(success {"available":false,"over_version":true})");
}

TEST_F(PatchCheckRequest, AnswersRecordsAndAnnouncesASmallUpdate) {
  Regular("M1", "VXM 1.3.1-9346 Update 2", "smallupdate");
  const std::string answer =
      R"(success {"available":true,"over_version":false,"type":"smallupdate",)"
      R"("version":"VXM 1.3.1-9346 Update 2"})";
  EXPECT_EQ(Check(), answer);
  EXPECT_THAT(
      LinesFrom("get /tmp/mesh_download"),
      ElementsAre("get /tmp/mesh_download version 8192",
                  "check /etc/kaloinfo.conf patch_check_notified_version=VXM 1.3.1-9346 Update 2",
                  kRaise, "info_set patch_check_notified_version=VXM 1.3.1-9346 Update 2", answer));
}

TEST_F(PatchCheckRequest, AFullUpdateIsAnsweredByItsSmallOne) {
  Regular("M1", "VXM 1.3.2-9400");
  EXPECT_EQ(Check(), R"(success {"available":true,"over_version":false,"type":"smallupdate",)"
                     R"("version":"VXM 1.3.2-9400 Update 0"})");
}

TEST_F(PatchCheckRequest, APromotionIsNotCalledAvailableAndAnnouncedWithoutAVersion) {
  Regular("M1", "VXM 1.4.0-76000");
  EXPECT_EQ(Check(), R"(success {"available":false,"beta_version":false,"over_version":false,)"
                     R"("promotion":true,"promotion_version":"VXM 1.4.0-76000","type":"hbx"})");
  EXPECT_THAT(Lines("check"),
              ElementsAre("check /etc/kaloinfo.conf patch_check_notified_version="));
  EXPECT_THAT(Lines("execl /usr/kalo/bin/kaloapp"), ElementsAre(kRaise));
  EXPECT_THAT(Lines("info_set"), ElementsAre("info_set patch_check_notified_version="));
}

TEST_F(PatchCheckRequest, ABetaPromotionSaysSo) {
  FeedItem("VXM 1.4.0-76010", 76010, R"("Beta")");
  EXPECT_NE(Check().find(R"("beta_version":true)"), std::string::npos);
}

TEST_F(PatchCheckRequest, ASecondCheckOfTheSameVersionNotifiesNobody) {
  Regular("M1", "VXM 1.3.1-9346 Update 2");
  (void)Check();
  (void)Check();
  EXPECT_THAT(Lines("execl /usr/kalo/bin/kaloapp"), IsEmpty());
  Regular("M1", "VXM 1.3.1-9346 Update 3");
  (void)Check();
  EXPECT_THAT(Lines("execl /usr/kalo/bin/kaloapp"), ElementsAre(kRaise));
}

TEST_F(PatchCheckRequest, IsRefusedWhileAnAutomaticUpdateRuns) {
  platform.auto_updating = true;
  for (const char* parameters : {"{}", R"({"auto":false})", R"({"auto":"true"})"}) {
    platform.files["/tmp/mesh_patch"] = {{"patch_full", "kept"}};
    EXPECT_EQ(Check(parameters), "error 5202 null");
    EXPECT_THAT(Lines(),
                ElementsAre("bool auto", "auto_updating", Lines("log")[0], "error 5202 null"));
    EXPECT_THAT(Logs(), ElementsAre("3 Is Autoupdating, can not check update now"));
    EXPECT_EQ(Key("patch_full"), "kept");
  }
}

TEST_F(PatchCheckRequest, AnAutomaticCheckGoesOnDuringAnAutomaticUpdate) {
  platform.auto_updating = true;
  EXPECT_EQ(Check(R"({"auto":true})"), R"(success {"available":false,"over_version":false})");
  EXPECT_EQ(Lines()[1].substr(0, 6), "log 7 ");
  EXPECT_EQ(Logs().front(), "7 Start auto patch check");
  EXPECT_EQ(Lines()[2], "auto_updating");
  EXPECT_EQ(Lines("regular_check auto").size(), 1U);
}

TEST_F(PatchCheckRequest, ADownloadOfTheOfferedVersionStays) {
  Regular("M1", "VXM 1.3.1-9346 Update 2");
  Downloaded("VXM 1.3.1-9346 Update 2");
  (void)Check();
  EXPECT_THAT(Lines("lock"), IsEmpty());
  EXPECT_THAT(Lines("unlink /tmp/mesh"), IsEmpty());
}

TEST_F(PatchCheckRequest, AStaleDownloadIsDroppedUnderTheLock) {
  Regular("M1", "VXM 1.3.1-9346 Update 2");
  Downloaded("VXM 1.3.1-9346 Update 1");
  EXPECT_NE(Check().find(R"("version":"VXM 1.3.1-9346 Update 2")"), std::string::npos);
  const std::vector<std::string> lines = LinesFrom("lock");
  ASSERT_GT(lines.size(), 8U);
  EXPECT_THAT(std::vector<std::string>(lines.begin(), lines.begin() + 8),
              ElementsAre("lock /var/lock/mesh_patch.lock 1 -1", "unlink /tmp/mesh_download",
                          "unlink /tmp/mesh_upgrade", "client", "node_infos", "access_infos",
                          "send KALO.Core.Upgrade.Patch clean 1 0", "unlock 41"));
}

TEST_F(PatchCheckRequest, AStaleDownloadThatSomebodyTransfersIsAnsweredAndAnnounced) {
  Regular("M1", "VXM 1.3.1-9346 Update 2");
  Downloaded("VXM 1.3.1-9346 Update 1");
  platform.lock_result = 0;
  EXPECT_EQ(Check(), R"(success {"available":true,"over_version":false,"type":"smallupdate",)"
                     R"("version":"VXM 1.3.1-9346 Update 1"})");
  EXPECT_THAT(Lines("unlock"), ElementsAre("unlock -1"));
  EXPECT_THAT(Lines("unlink /tmp/mesh"), IsEmpty());
  EXPECT_THAT(Lines("info_set"),
              ElementsAre("info_set patch_check_notified_version=VXM 1.3.1-9346 Update 1"));
}

TEST_F(PatchCheckRequest, APromotionBesideATransferNamesBoth) {
  Regular("M1", "VXM 1.4.0-76000");
  Downloaded("VXM 1.3.1-9346 Update 1");
  platform.lock_result = 0;
  EXPECT_EQ(Check(), R"(success {"available":true,"beta_version":false,"over_version":false,)"
                     R"("promotion":true,"promotion_version":"VXM 1.4.0-76000","type":"hbx",)"
                     R"("version":"VXM 1.3.1-9346 Update 1"})");
}

TEST_F(PatchCheckRequest, ATroubleWhileTheLockIsHeldFreesItBeforeTheAnswer) {
  Regular("M1", "VXM 1.3.1-9346 Update 2");
  Downloaded("VXM 1.3.1-9346 Update 1");
  platform.throwers["send"] = fake::Throws(std::runtime_error("no credentials"));
  EXPECT_EQ(Check(), "error 117 null");
  EXPECT_EQ(Logs().back(), "3 Exception: no credentials");
  EXPECT_EQ(LinesFrom("unlock").size(), 3U);
}

TEST_F(PatchCheckRequest, ADownloadedVersionThatCannotBeReadIsAFailure) {
  Regular("M1", "VXM 1.3.1-9346 Update 2");
  for (const char* version : {"rubbish", "x"}) {
    Downloaded(version);
    EXPECT_EQ(Check(), "error 117 null");
    EXPECT_EQ(Logs().back(), "3 Exception: Input Version Incorrect");
  }
}

TEST_F(PatchCheckRequest, AnEmptyDownloadedVersionIsNone) {
  Regular("M1", "VXM 1.3.1-9346 Update 2");
  Downloaded("");
  EXPECT_TRUE(Check().starts_with("success "));
  EXPECT_THAT(Lines("lock"), IsEmpty());
}

TEST_F(PatchCheckRequest, FailuresOfTheCheckAreGeneral) {
  platform.node_infos.nodes[0].full_version = "rubbish";
  EXPECT_EQ(Check(), "error 117 null");
  EXPECT_THAT(Logs(), ElementsAre("3 Parse version rubbish for 0 fail",
                                  "3 Exception: Parse version error"));
  platform.throwers["client"] = fake::Throws(WebapiParamException("bad input"));
  EXPECT_EQ(Check(), "error 403 null");
  EXPECT_THAT(Logs(), ElementsAre("3 Parameter Error: bad input"));
}

class AppNotify : public CheckTest {};

TEST_F(AppNotify, StoresTheVersionAlsoWhenTheToolFailed) {
  for (const int result : {1, -1}) {
    notify_result = result;
    platform.journal.Clear();
    handler.SendAppNotify("v" + std::to_string(result));
    EXPECT_THAT(Logs(), ElementsAre("3 Fail to exec command [/usr/kalo/bin/kaloappnotify] "
                                    "(send upgrade notification to admin center)"));
    EXPECT_EQ(Lines("info_set").size(), 1U);
  }
}

TEST_F(AppNotify, AVersionThatCannotBeStoredIsLogged) {
  platform.results["info_set patch_check_notified_version"] = -1;
  handler.SendAppNotify("1.2");
  EXPECT_THAT(Logs(), ElementsAre("3 Failed to write notified version "
                                  "[patch_check_notified_version=1.2]"));
  platform.results["info_set patch_check_notified_version"] = -2;
  platform.journal.Clear();
  handler.SendAppNotify("1.2");
  EXPECT_THAT(Logs(), IsEmpty()) << "only -1 is a failure";
}

TEST_F(AppNotify, AClearThatFailsIsLogged) {
  notify_result = 2;
  handler.ClearAppNotify();
  EXPECT_THAT(Logs(), ElementsAre("3 Fail to exec command [/usr/kalo/bin/kaloappnotify] "
                                  "(clear upgrade notification to admin center)"));
}

}  // namespace
}  // namespace KALO::MESH::Webapi
