#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

using fake::ElementsAre;
using fake::IsEmpty;
using fake::MatchesRegex;
using ::testing::Contains;

constexpr const char* kPatch = "/volume1/@mesh_full/M1_76010.pat";
constexpr const char* kLocator = "/fullupgr@de.info";
constexpr const char* kUpdater = "/tmp/patchtmp/updater";
constexpr const char* kReport = "/run/customized_reason";

SDK::Upgrade::PatchInfo PatchOf(bool valid, int build) {
  SDK::Upgrade::PatchInfo info;
  info.valid = valid;
  info.build_num = build;
  return info;
}

class Precheck : public fake::ModuleTest {
 protected:
  Precheck() {
    platform.AddNode(0, "M1", 76000);
    platform.AddNode(3, "M2", 76000);
    platform.json_files[kLocator]["patchPath"] = kPatch;
    platform.plain_files = {kLocator, kPatch, kUpdater};
    platform.patches[kPatch] = PatchOf(true, 76010);
    platform.on_program = [this](const std::vector<std::string>& words) { return Run(words); };
  }

  // The updater and the few programs around it.
  int Run(const std::vector<std::string>& words) {
    const auto status = statuses_.find(words[0] + " " + words[1]);
    if (words[0] == kUpdater && words[1] == "-p") platform.files[kReport] = report_;
    if (report_.empty()) platform.files.erase(kReport);
    return status != statuses_.end() ? status->second : 0;
  }
  std::string Answer(const std::string& parameters = "{}") {
    Call(WebapiUpgradeRunPrecheck, parameters);
    EXPECT_EQ(Answers().size(), 1U);
    return Answers().empty() ? "" : Answers().back();
  }
  void HandIn(const std::string& unique, const std::string& version = "VXM 1.4.0-76010") {
    platform.plain_files.erase(kPatch);
    platform.files["/tmp/mesh_patch"]["patch_upload"] = version;
    platform.plain_files.insert("/tmp/" + unique + "_" + version + ".pat");
    platform.patches["/tmp/FullUpgrade.pat"] = PatchOf(true, 76010);
  }
  // Whatever the answer is: first it, then the scratch folder goes, then the lock.
  void ExpectEnd() const {
    const std::vector<std::string> lines = Lines();
    ASSERT_GE(lines.size(), 3U);
    const std::string& answer = *(lines.end() - 3);
    EXPECT_TRUE(answer.starts_with("success ") || answer.starts_with("error ")) << answer;
    EXPECT_EQ(*(lines.end() - 2), "exec /bin/rm -rf /tmp/patchtmp");
    EXPECT_EQ(lines.back(), "unlock 41");
  }
  // A failure after the lock was taken.
  void ExpectFailure(const std::string& message) {
    EXPECT_EQ(Answer(), "error 100 null");
    EXPECT_THAT(Lines(), Contains("log 3 1588 RunUpgradePrecheck exception: " + message));
    ExpectEnd();
  }

  std::map<std::string, int> statuses_;  ///< by program and first argument; none: 0
  std::map<std::string, std::string> report_;
};

TEST_F(Precheck, RunsTheUpdaterOfAFullPatch) {
  EXPECT_EQ(Answer(), R"(success {"eulacheck":false,"precheck":false})");
  EXPECT_THAT(
      Lines(),
      ElementsAre("string lang", "lock /tmp/lock/mesh_precheck 1 -1",
                  "unlink /run/customized_reason", "exist /fullupgr@de.info",
                  "parse_json /fullupgr@de.info", std::string("exist ") + kPatch,
                  std::string("parse_patch ") + kPatch,
                  "log 7 1528 Patch build number (76010) is >= 76000, proceeding with precheck",
                  "exec /bin/rm -rf /tmp/patchtmp", "exec /bin/mkdir -p /tmp/patchtmp",
                  std::string("execl /bin/tar 187 -xf ") + kPatch +
                      " -C /tmp/patchtmp updater VERSION texts",
                  "exist /tmp/patchtmp/updater", "exist /tmp/patchtmp/updater",
                  "execl /tmp/patchtmp/updater 187 --should-show-eula",
                  "exec /tmp/patchtmp/updater -p -l enu", "exist /run/customized_reason",
                  R"(success {"eulacheck":false,"precheck":false})",
                  "exec /bin/rm -rf /tmp/patchtmp", "unlock 41"));
}

TEST_F(Precheck, ShowsTheLicenceInTheAskedLanguage) {
  statuses_[std::string(kUpdater) + " --should-show-eula"] = 1;
  platform.program_output = "first line\n\n  second\n";
  EXPECT_EQ(Answer(R"({"lang":"ger"})"),
            R"(success {"eulacheck":true,"eulacheck_content":"first line\n\n  second\n",)"
            R"("precheck":false})");
  EXPECT_THAT(Lines("popen"), ElementsAre("popen /tmp/patchtmp/updater r updater "
                                          "--print-eula-content -l ger"));
  EXPECT_THAT(Lines(), Contains("exec /tmp/patchtmp/updater -p -l ger"));
  ExpectEnd();
}

TEST_F(Precheck, WithoutALanguageTheLicenceIsShownInEnglish) {
  statuses_[std::string(kUpdater) + " --should-show-eula"] = 1;
  platform.program_output = "text";
  (void)Answer(R"({"lang":3})");
  EXPECT_THAT(Lines("popen"), ElementsAre("popen /tmp/patchtmp/updater r updater "
                                          "--print-eula-content -l enu"));
}

TEST_F(Precheck, AnEmptyLanguageIsALanguageToo) {
  (void)Answer(R"({"lang":""})");
  EXPECT_THAT(Lines(), Contains("exec /tmp/patchtmp/updater -p -l "));
}

TEST_F(Precheck, TellsTheUpdatersFindings) {
  statuses_[std::string(kUpdater) + " -p"] = 1;
  report_ = {{"can_continue", "yes"}, {"leading_note", "Note"}, {"reason", "not enough memory"}};
  EXPECT_EQ(Answer(),
            R"(success {"eulacheck":false,"precheck":true,"precheck_info":)"
            R"({"can_continue":true,"leading_note":"Note","message":"not enough memory"}})");
  EXPECT_THAT(Lines(), Contains("log 3 1562 Some customized reasons found by updater precheck"));
  EXPECT_THAT(Lines("check"), ElementsAre("check /run/customized_reason can_continue=yes flags 1"));
  EXPECT_THAT(Lines("get /run"), ElementsAre("get /run/customized_reason leading_note 1024",
                                             "get /run/customized_reason reason 4096"));
  ExpectEnd();
}

TEST_F(Precheck, ItsTextsMayBeOneLetter) {
  report_ = {{"can_continue", "yes"}, {"leading_note", "n"}, {"reason", "r"}};
  EXPECT_THAT(Answer(), ::testing::HasSubstr(R"("leading_note":"n","message":"r")"));
}

TEST_F(Precheck, OnlyYesLetsTheUpgradeGoOn) {
  for (const char* word : {"no", "YES", "", "true", "yes "}) {
    report_ = {{"can_continue", word}, {"leading_note", "Note"}, {"reason", "why"}};
    Call(WebapiUpgradeRunPrecheck);
    EXPECT_THAT(Answers().back(), ::testing::HasSubstr(R"("can_continue":false)")) << word;
  }
  report_ = {{"leading_note", "Note"}, {"reason", "why"}};
  Call(WebapiUpgradeRunPrecheck);
  EXPECT_THAT(Answers().back(), ::testing::HasSubstr(R"("can_continue":false)")) << "no key";
}

TEST_F(Precheck, TheReportDecidesAndNotTheExitStatus) {
  for (const int status : {3, -1}) {
    platform.journal.Clear();
    statuses_[std::string(kUpdater) + " -p"] = status;
    EXPECT_EQ(Answer(), R"(success {"eulacheck":false,"precheck":false})");
    EXPECT_THAT(Lines(), Contains("log 3 1562 Some customized reasons found by updater precheck"));
  }
  platform.journal.Clear();
  statuses_.clear();
  report_ = {{"leading_note", "Note"}, {"reason", "why"}};
  EXPECT_THAT(Answer(), ::testing::HasSubstr(R"("precheck":true)"));
}

TEST_F(Precheck, AReportWithoutItsTextsIsAFailure) {
  report_ = {{"reason", "why"}};
  ExpectFailure("Failed to get leading note");
  platform.journal.Clear();
  report_ = {{"leading_note", "Note"}};
  ExpectFailure("Failed to get reason from");
  platform.journal.Clear();
  report_ = {{"leading_note", ""}, {"reason", "why"}};
  ExpectFailure("Failed to get leading note");
}

TEST_F(Precheck, AReportWhoseTextsDoNotFitIsAFailure) {
  report_ = {{"leading_note", "Note"}, {"reason", "why"}};
  platform.results["get /run/customized_reason reason"] = -1;
  ExpectFailure("Failed to get reason from");
  platform.journal.Clear();
  platform.results["get /run/customized_reason leading_note"] = -1;
  ExpectFailure("Failed to get leading note");
}

TEST_F(Precheck, ASecondOneIsRefusedAndTouchesNothing) {
  platform.lock_result = 0;
  EXPECT_EQ(Answer(), "error 100 null");
  EXPECT_THAT(Lines(), ElementsAre("string lang", "lock /tmp/lock/mesh_precheck 1 -1",
                                   "log 3 1451 Failed to acquire precheck lock", "error 100 null"));
}

TEST_F(Precheck, WithoutAFullPatchThereIsNothingToCheck) {
  platform.plain_files.clear();
  EXPECT_EQ(Answer(), R"(success {"eulacheck":false,"precheck":false})");
  EXPECT_THAT(Lines("log 6"), ElementsAre("log 6 1510 FullUpgrade.pat not found, treat as nano "
                                          "precheck success"));
  EXPECT_THAT(Lines("get"), ElementsAre("get /tmp/mesh_patch patch_upload 256"));
  EXPECT_THAT(Lines("client"), IsEmpty()) << "nobody is asked when nothing was handed in";
  ExpectEnd();
}

TEST_F(Precheck, ALocatorThatIsNotOneFallsBackToWhatWasHandedIn) {
  Json::Value number(Json::objectValue);
  number["patchPath"] = 3;
  for (const Json::Value& locator : {Json::Value(Json::arrayValue), Json::Value("text"),
                                     Json::Value(Json::objectValue), number}) {
    platform.json_files[kLocator] = locator;
    Call(WebapiUpgradeRunPrecheck);
  }
  platform.json_files.clear();
  Call(WebapiUpgradeRunPrecheck);
  EXPECT_EQ(Lines("get /tmp/mesh_patch patch_upload").size(), 5U);
}

TEST_F(Precheck, ALocatedPatchThatIsGoneFallsBackToWhatWasHandedIn) {
  HandIn("M2");
  EXPECT_EQ(Answer(), R"(success {"eulacheck":false,"precheck":false})");
  EXPECT_THAT(Lines("move"), ElementsAre("move /tmp/M2_VXM 1.4.0-76010.pat /tmp/FullUpgrade.pat"));
  EXPECT_THAT(Lines(), Contains("log 7 1501 Renamed patch to FullUpgrade.pat: "
                                "/tmp/FullUpgrade.pat"));
  EXPECT_THAT(Lines("execl /bin/tar"),
              ElementsAre("execl /bin/tar 187 -xf /tmp/FullUpgrade.pat -C /tmp/patchtmp updater "
                          "VERSION texts"));
}

TEST_F(Precheck, TheFirstHandedInPatchThatCanBeMovedIsTaken) {
  HandIn("M1");
  HandIn("M2");
  platform.stuck_files = {"/tmp/M1_VXM 1.4.0-76010.pat"};
  (void)Answer();
  EXPECT_THAT(Lines("move"), ElementsAre("move /tmp/M1_VXM 1.4.0-76010.pat /tmp/FullUpgrade.pat",
                                         "move /tmp/M2_VXM 1.4.0-76010.pat /tmp/FullUpgrade.pat"));
  EXPECT_THAT(Lines("parse_patch"), ElementsAre("parse_patch /tmp/FullUpgrade.pat"));
}

TEST_F(Precheck, OnlyOneHandedInPatchIsMoved) {
  HandIn("M1");
  HandIn("M2");
  (void)Answer();
  EXPECT_THAT(Lines("move"), ElementsAre("move /tmp/M1_VXM 1.4.0-76010.pat /tmp/FullUpgrade.pat"));
}

TEST_F(Precheck, AHandedInPatchThatCannotBeMovedIsNone) {
  HandIn("M2");
  platform.stuck_files = {"/tmp/M2_VXM 1.4.0-76010.pat"};
  EXPECT_EQ(Answer(), R"(success {"eulacheck":false,"precheck":false})");
  EXPECT_THAT(Lines("log 6"), ElementsAre("log 6 1510 FullUpgrade.pat not found, treat as nano "
                                          "precheck success"));
}

TEST_F(Precheck, AnyNameButAnEmptyOneIsLookedFor) {
  HandIn("M1", "");
  (void)Answer();
  EXPECT_THAT(Lines("move"), IsEmpty());
  platform.journal.Clear();
  HandIn("M1", "x");
  (void)Answer();
  EXPECT_THAT(Lines("move"), ElementsAre("move /tmp/M1_x.pat /tmp/FullUpgrade.pat"));
}

TEST_F(Precheck, APatchHandedInForNoModelOfTheMeshIsNotFound) {
  HandIn("M9");
  EXPECT_EQ(Answer(), R"(success {"eulacheck":false,"precheck":false})");
  EXPECT_THAT(Lines("move"), IsEmpty());
  EXPECT_THAT(Lines("log 6"), ElementsAre("log 6 1510 FullUpgrade.pat not found, treat as nano "
                                          "precheck success"));
}

TEST_F(Precheck, NodesThatCannotBeAskedAreAFailure) {
  HandIn("M1");
  platform.node_infos.code = 1;
  ExpectFailure("Failed to get node infos");
}

TEST_F(Precheck, AnOldPatchHasNoPrecheck) {
  platform.patches[kPatch].build_num = 75999;
  EXPECT_EQ(Answer(), R"(success {"leading_note":"","reason":""})");
  EXPECT_THAT(Lines("log"),
              ElementsAre("log 7 1522 Patch build number (75999) is less than 76000, skipping "
                          "precheck"));
  EXPECT_THAT(Lines("execl"), IsEmpty());
  ExpectEnd();
}

TEST_F(Precheck, TheFirstBuildWithAPrecheckHasIt) {
  platform.patches[kPatch].build_num = 76000;
  (void)Answer();
  EXPECT_EQ(Lines("execl").size(), 2U);
}

TEST_F(Precheck, ARecordThatIsNotValidGoesOnWhateverItsNumber) {
  platform.patches[kPatch] = PatchOf(false, 9346);
  (void)Answer();
  EXPECT_THAT(Lines("log 7"), ElementsAre("log 7 1528 Patch build number (9346) is >= 76000, "
                                          "proceeding with precheck"));
  EXPECT_EQ(Lines("execl").size(), 2U);
}

TEST_F(Precheck, APatchThatCannotBeLookedAtIsAFailure) {
  platform.throwers["parse_patch"] = fake::Throws(std::runtime_error("cannot remove"));
  ExpectFailure("Failed to parse patch info for version check");
  EXPECT_THAT(Lines("execl"), IsEmpty());
}

TEST_F(Precheck, AScratchFolderThatStaysIsOnlyLogged) {
  for (const int status : {1, -1}) {
    platform.journal.Clear();
    statuses_["/bin/rm -rf"] = status;
    EXPECT_EQ(Answer(), R"(success {"eulacheck":false,"precheck":false})");
    EXPECT_THAT(Lines("log 3"),
                ElementsAre("log 3 1534 Failed to clean extract directory: /tmp/patchtmp",
                            "log 3 1459 Failed to clean extract directory: /tmp/patchtmp"));
    EXPECT_EQ(Lines().back(), "unlock 41");
  }
}

TEST_F(Precheck, WithoutAScratchFolderNothingIsUnpacked) {
  for (const int status : {1, -1}) {
    platform.journal.Clear();
    statuses_["/bin/mkdir -p"] = status;
    ExpectFailure("Failed to create extract directory");
    EXPECT_THAT(Lines("execl"), IsEmpty());
  }
}

TEST_F(Precheck, APatchThatCannotBeUnpackedIsAFailure) {
  for (const int status : {1, 2, -1}) {
    platform.journal.Clear();
    statuses_["/bin/tar -xf"] = status;
    ExpectFailure("Failed to extract updater, VERSION and texts from FullUpgrade.pat");
  }
}

TEST_F(Precheck, APatchWithoutAnUpdaterIsAFailure) {
  platform.plain_files.erase(kUpdater);
  ExpectFailure("Updater program not found");
  EXPECT_THAT(Lines("execl /tmp"), IsEmpty());
}

TEST_F(Precheck, AnExceptionOfAnyTypeIsAnsweredAndCleanedUpAfter) {
  platform.throwers["parse_patch"] = fake::Throws(fake::NotStandard());
  EXPECT_EQ(Answer(), "error 100 null");
  EXPECT_THAT(Lines(), Contains("log 3 1588 RunUpgradePrecheck exception: unknown"));
  ExpectEnd();
}

TEST_F(Precheck, ALicenceThatCannotBeReadIsNotShown) {
  statuses_[std::string(kUpdater) + " --should-show-eula"] = 1;
  platform.program_output = "half a licence";
  platform.program_status = 1;
  EXPECT_EQ(Answer(), R"(success {"eulacheck":false,"precheck":false})");
  EXPECT_THAT(Lines("log 3"),
              ElementsAre("log 3 2385 Failed to get EULA content, command returned: 1",
                          "log 3 1557 Failed to get eula content"));
}

// The two questions by themselves, about any folder.
class Licence : public fake::ModuleTest {
 protected:
  Licence() { platform.plain_files = {"/there/updater"}; }
  bool Ask(int status) {
    platform.on_program = [status](const auto&) { return status; };
    return handler.CheckEulaStart("/there");
  }
};

TEST_F(Licence, IsShownForExitStatusOneOnly) {
  EXPECT_TRUE(Ask(1));
  EXPECT_FALSE(Ask(0));
  EXPECT_THAT(Lines("log"), IsEmpty());
  EXPECT_FALSE(Ask(2));
  EXPECT_FALSE(Ask(255));
  EXPECT_FALSE(Ask(-1));
  EXPECT_THAT(Lines("log"),
              ElementsAre("log 3 2352 Failed to check eula before upgrade, err = 2",
                          "log 3 2352 Failed to check eula before upgrade, err = 255",
                          "log 3 2352 Failed to check eula before upgrade, err = -1"));
}

TEST_F(Licence, NeedsAnUpdater) {
  EXPECT_FALSE(handler.CheckEulaStart("/elsewhere"));
  EXPECT_EQ(handler.GetEulaContent("/elsewhere", "enu"), "");
  EXPECT_THAT(Lines("log"),
              ElementsAre("log 3 2345 Updater program not found at: /elsewhere/updater",
                          "log 3 2366 Updater program not found at: /elsewhere/updater"));
  EXPECT_THAT(Lines("exec"), IsEmpty());
}

TEST_F(Licence, AnExceptionIsLoggedAndMeansNo) {
  platform.throwers["execl"] = fake::Throws(std::runtime_error("odd"));
  platform.throwers["popen"] = fake::Throws(std::runtime_error("odd too"));
  EXPECT_FALSE(handler.CheckEulaStart("/there"));
  EXPECT_EQ(handler.GetEulaContent("/there", "enu"), "");
  EXPECT_THAT(Lines("log"),
              ElementsAre("log 3 2356 Exception in CheckEulaStart: odd",
                          MatchesRegex("log 3 [0-9]+ Exception in GetEulaContent: odd too")));
}

TEST_F(Licence, AProgramThatCannotBeStartedHasNoText) {
  EXPECT_EQ(handler.GetEulaContent("/there", "enu"), "");
  EXPECT_THAT(Lines("log"), ElementsAre("log 3 2373 Failed to execute updater with KLIBCPopen"));
  EXPECT_THAT(Lines("pclose"), IsEmpty());
}

TEST_F(Licence, KeepsEveryByteOfALongText) {
  std::string text;
  for (int i = 0; i < 3000; ++i) text += "line " + std::to_string(i) + "\r\n\n";
  text += std::string(10000, 'x');  // longer than any buffer, and no line end behind it
  platform.program_output = text;
  EXPECT_EQ(handler.GetEulaContent("/there", "enu"), text);
  EXPECT_THAT(Lines("pclose"), ElementsAre("pclose"));
}

TEST_F(Licence, TheTextOfAFailedCommandIsDropped) {
  platform.program_output = "text";
  for (const int status : {1, 2, -1}) {
    platform.program_status = status;
    EXPECT_EQ(handler.GetEulaContent("/there", "enu"), "");
  }
  EXPECT_THAT(Lines("log"),
              ElementsAre("log 3 2385 Failed to get EULA content, command returned: 1",
                          "log 3 2385 Failed to get EULA content, command returned: 2",
                          "log 3 2385 Failed to get EULA content, command returned: -1"));
}

}  // namespace
}  // namespace KALO::MESH::Webapi
