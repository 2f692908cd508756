#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

using fake::ElementsAre;
using fake::IsEmpty;
using fake::MatchesRegex;
using ::testing::Contains;
using ::testing::Not;

constexpr const char* kInfo = "/tmp/mesh_patch";
constexpr const char* kLow = "VXM 1.4.0-76000";
constexpr const char* kMiddle = "VXM 1.4.1-76010";
constexpr const char* kHigh = "VXM 1.4.2-76020";

class EqualCheck : public fake::ModuleTest {
 protected:
  EqualCheck() {
    platform.files["/etc.defaults/kaloinfo.conf"]["unique"] = "M1";
    platform.files[kInfo] = {{"avaliable_full", "true"}, {"patch_full", "old"},
                             {"avaliable_nano", "true"}, {"over_version", "true"},
                             {"patch_nano", "old"},      {"uniques_full", "M9  9;"}};
  }
  void AddNode(int id, const std::string& unique, const std::string& version) {
    platform.AddNode(id, unique, 1);
    platform.node_infos.nodes[static_cast<std::uint32_t>(id)].full_version = version;
  }
  std::string Key(const std::string& key) {
    const auto& file = platform.files[kInfo];
    const auto found = file.find(key);
    return found != file.end() ? found->second : "-";
  }
  std::string Answer(const std::string& parameters = "{}") {
    Call(WebapiUpgradePatchCheckEqual, parameters);
    EXPECT_EQ(Answers().size(), 1U);
    return Answers().empty() ? "" : Answers().back();
  }
  // The keys that the check removes, and those that it writes.
  [[nodiscard]] std::vector<std::string> Writes() const {
    std::vector<std::string> lines = Lines();
    std::erase_if(lines, [](const std::string& line) {
      return !line.starts_with("set ") && !line.starts_with("remove ");
    });
    return lines;
  }
};

TEST_F(EqualCheck, WithoutNodesOnlyTheCapIsLookedAt) {
  AddNode(0, "M1", kLow);
  AddNode(3, "M2", kHigh);
  platform.upgrade_paths[kLow] = {kHigh};
  EXPECT_EQ(Answer(), R"(success {"available":true,"nodes":[0],"version":"VXM 1.4.2-76020"})");
  EXPECT_THAT(Lines("log 7 204"), ElementsAre("log 7 204 No parameter, set default"));
  EXPECT_THAT(Lines("upgrade_path"),
              ElementsAre(std::string("upgrade_path ") + kHigh + " " + kLow + " M1"));
  EXPECT_THAT(
      Writes(),
      ElementsAre("remove /tmp/mesh_patch avaliable_full", "remove /tmp/mesh_patch patch_full",
                  "remove /tmp/mesh_patch avaliable_nano", "remove /tmp/mesh_patch over_version",
                  "remove /tmp/mesh_patch patch_nano", "set /tmp/mesh_patch avaliable_full=true",
                  "set /tmp/mesh_patch patch_full=VXM 1.4.2-76020",
                  "set /tmp/mesh_patch uniques_full=M1  0;"));
}

TEST_F(EqualCheck, TheParameterIsReadFirstAndTheKeysGoBeforeTheNodesAreAsked) {
  AddNode(0, "M1", kLow);
  Call(WebapiUpgradePatchCheckEqual);
  const auto lines = Lines();
  ASSERT_GE(lines.size(), 8U);
  EXPECT_EQ(lines[0], "param nodes");
  EXPECT_EQ(lines[2], "remove /tmp/mesh_patch avaliable_full");
  EXPECT_EQ(lines[6], "remove /tmp/mesh_patch patch_nano");
  EXPECT_EQ(lines[7], "client");
}

TEST_F(EqualCheck, AskedNodesAreTakenInTheirOrder) {
  AddNode(0, "M1", kHigh);
  AddNode(3, "M2", kLow);
  AddNode(5, "M3", kLow);
  platform.upgrade_paths[kLow] = {kHigh};
  EXPECT_EQ(Answer(R"({"nodes":[5,3]})"),
            R"(success {"available":true,"nodes":[3,5],"version":"VXM 1.4.2-76020"})")
      << "asked in the request's order, listed by ascending id";
  EXPECT_THAT(Lines("log 7 200"),
              ElementsAre("log 7 200 Get parameter 5", "log 7 200 Get parameter 3"));
  EXPECT_THAT(Lines("upgrade_path"),
              ElementsAre(std::string("upgrade_path ") + kHigh + " " + kLow + " M3",
                          std::string("upgrade_path ") + kHigh + " " + kLow + " M2"));
  EXPECT_EQ(Key("uniques_full"), "M2  3; M3  5;");
}

TEST_F(EqualCheck, AnythingButAnArrayWithIdsMeansTheCap) {
  AddNode(0, "M1", kLow);
  for (const char* parameters : {R"({"nodes":[]})", R"({"nodes":"3"})", R"({"nodes":3})",
                                 R"({"nodes":{"0":3}})", R"({"nodes":null})"}) {
    Call(WebapiUpgradePatchCheckEqual, parameters);
  }
  EXPECT_EQ(Lines("log 7 204").size(), 5U);
  EXPECT_THAT(Lines("log 7 200"), IsEmpty());
}

TEST_F(EqualCheck, AnIdThatIsNoNumberIsAGeneralFailure) {
  AddNode(0, "M1", kLow);
  EXPECT_EQ(Answer(R"({"nodes":["x"]})"), "error 117 null");
  EXPECT_THAT(Logs(), ElementsAre(::testing::StartsWith("3 Exception: ")));
  EXPECT_THAT(Writes(), IsEmpty());
}

TEST_F(EqualCheck, KeysThatCannotBeRemovedAreOnlyLogged) {
  AddNode(0, "M1", kLow);
  platform.files.erase(kInfo);
  EXPECT_EQ(Answer(), R"(success {"available":false})");
  EXPECT_THAT(
      Lines("log 3"),
      ElementsAre("log 3 209 Remove full available error", "log 3 213 Remove full version error",
                  "log 3 217 Remove nano available error", "log 3 221 Remove over version error",
                  "log 3 225 Remove nano version error"));
}

TEST_F(EqualCheck, WhoIsThereAlreadyNeedsNothingAndTheKeysStayGone) {
  AddNode(0, "M1", kHigh);
  AddNode(3, "M2", kHigh);
  EXPECT_EQ(Answer(R"({"nodes":[0,3]})"), R"(success {"available":false})");
  for (const char* key :
       {"avaliable_full", "patch_full", "avaliable_nano", "over_version", "patch_nano"}) {
    EXPECT_EQ(Key(key), "-") << key;
  }
  EXPECT_EQ(Key("uniques_full"), "M9  9;") << "the groups' keys stay";
}

TEST_F(EqualCheck, ANodeThatDoesNotExistIsNotLookedFor) {
  AddNode(3, "M2", kLow);
  AddNode(4, "M2", kHigh);
  platform.upgrade_paths[kLow] = {kHigh};
  EXPECT_EQ(Answer(), R"(success {"available":false})") << "no node 0";
  EXPECT_THAT(Lines("upgrade_path"), IsEmpty());
}

TEST_F(EqualCheck, TheHighestVersionOfAllNodesIsTheTargetAndATieKeepsTheEarlierText) {
  AddNode(0, "M1", "VXM 1.4.0-76000");
  AddNode(3, "M2", "VXM 9-76000 Update 0");
  Call(WebapiUpgradePatchCheckEqual);
  EXPECT_THAT(Lines("upgrade_path"),
              ElementsAre("upgrade_path VXM 1.4.0-76000 VXM 1.4.0-76000 M1"));
}

TEST_F(EqualCheck, TheLowestStopCollectsThoseWhoPassIt) {
  AddNode(0, "M1", kHigh);
  AddNode(3, "M2", "VXM 1.3.9-75000");
  AddNode(4, "M2", kLow);
  AddNode(5, "M2", kMiddle);
  platform.upgrade_paths["VXM 1.3.9-75000"] = {kMiddle, kHigh};
  platform.upgrade_paths[kLow] = {kMiddle, kHigh};
  platform.upgrade_paths[kMiddle] = {kHigh};
  EXPECT_EQ(Answer(R"({"nodes":[3,4,5]})"),
            R"(success {"available":true,"nodes":[3,4],"version":"VXM 1.4.1-76010"})");
  EXPECT_EQ(Key("patch_full"), "VXM 1.4.1-76010");
  EXPECT_EQ(Key("uniques_full"), "M2  3 4;");
}

TEST_F(EqualCheck, ALowerStopForgetsThoseOfTheHigherOne) {
  AddNode(0, "M1", kHigh);
  AddNode(3, "M2", kMiddle);
  AddNode(4, "M2", kLow);
  platform.upgrade_paths[kMiddle] = {kHigh};
  platform.upgrade_paths[kLow] = {kHigh, kMiddle, kHigh};
  EXPECT_EQ(Answer(R"({"nodes":[3,4]})"),
            R"(success {"available":true,"nodes":[4],"version":"VXM 1.4.1-76010"})");
  EXPECT_EQ(Key("uniques_full"), "M2  4;");
}

TEST_F(EqualCheck, AWayThatPassesTheStopTwiceListsItsNodeTwice) {
  AddNode(0, "M1", kLow);
  AddNode(3, "M2", kHigh);
  platform.upgrade_paths[kLow] = {kMiddle, kMiddle, kHigh};
  EXPECT_EQ(Answer(), R"(success {"available":true,"nodes":[0,0],"version":"VXM 1.4.1-76010"})");
  EXPECT_EQ(Key("uniques_full"), "M1  0 0;");
}

TEST_F(EqualCheck, AnIdAskedForTwiceHasOneWay) {
  AddNode(0, "M1", kLow);
  AddNode(3, "M2", kHigh);
  platform.upgrade_paths[kLow] = {kHigh};
  EXPECT_EQ(Answer(R"({"nodes":[0,0]})"),
            R"(success {"available":true,"nodes":[0],"version":"VXM 1.4.2-76020"})");
  EXPECT_EQ(Lines("upgrade_path").size(), 2U);
}

TEST_F(EqualCheck, ANodeWithoutAWayIsLoggedAndSkipped) {
  AddNode(0, "M1", kLow);
  AddNode(3, "M2", kLow);
  AddNode(4, "M3", kHigh);
  platform.upgrade_paths[kLow] = {kHigh};
  platform.throwers[std::string("upgrade_path ") + kHigh + " " + kLow + " M1"] =
      fake::Throws(std::runtime_error("no list"));
  EXPECT_EQ(Answer(R"({"nodes":[0,3]})"),
            R"(success {"available":true,"nodes":[3],"version":"VXM 1.4.2-76020"})");
  EXPECT_THAT(Lines("log 3"),
              ElementsAre("log 3 256 Get upgrade path expeption with no list",
                          // ParseVersion writes its notes at this priority.
                          ::testing::HasSubstr("Parsed"), ::testing::HasSubstr("Parsed"),
                          ::testing::HasSubstr("Parsed")));
}

TEST_F(EqualCheck, OnlyTheSmallNumberLacksAndTheFullRecordSaysNo) {
  AddNode(0, "M1", "VXM 1.4.0-76000 Update 1");
  AddNode(3, "M2", "VXM 1.4.0-76000 Update 3");
  platform.upgrade_paths["VXM 1.4.0-76000 Update 1"] = {"VXM 1.4.0-76000 Update 2"};
  EXPECT_EQ(Answer(),
            R"(success {"available":true,"nodes":[0],"version":"VXM 1.4.0-76000 Update 2"})");
  EXPECT_EQ(Key("avaliable_full"), "false");
  EXPECT_EQ(Key("over_version"), "false");
  EXPECT_EQ(Key("patch_full"), "-");
  EXPECT_EQ(Key("avaliable_nano"), "true");
  EXPECT_EQ(Key("patch_nano"), "VXM 1.4.0-76000 Update 3")
      << "the highest, as the build is its own";
  EXPECT_EQ(Key("uniques_nano"), "M1  0;");
}

TEST_F(EqualCheck, TheFirstSmallNumberCountsToo) {
  AddNode(0, "M1", "VXM 1.4.0-76000");
  AddNode(3, "M2", "VXM 1.4.0-76000 Update 1");
  platform.upgrade_paths["VXM 1.4.0-76000"] = {"VXM 1.4.0-76000 Update 1"};
  (void)Answer();
  EXPECT_EQ(Key("uniques_nano"), "M1  0;");
}

// The highest version has the stop's build: its small number counts, also beyond the stop's.
TEST_F(EqualCheck, TheHighestSmallNumberCountsForItsOwnBuild) {
  AddNode(0, "M1", "VXM 1.4.0-76000 Update 2");
  AddNode(3, "M2", "VXM 1.4.0-76000 Update 3");
  platform.upgrade_paths["VXM 1.4.0-76000 Update 2"] = {"VXM 1.4.0-76000 Update 2"};
  (void)Answer();
  EXPECT_EQ(Key("uniques_nano"), "M1  0;");
  EXPECT_EQ(Key("patch_nano"), "VXM 1.4.0-76000 Update 3");
}

TEST_F(EqualCheck, AFullPatchAndTheHighestSmallOne) {
  AddNode(0, "M1", kLow);
  AddNode(3, "M2", "VXM 1.4.1-76010 Update 2");
  platform.upgrade_paths[kLow] = {kMiddle, "VXM 1.4.1-76010 Update 2"};
  EXPECT_EQ(Answer(), R"(success {"available":true,"nodes":[0],"version":"VXM 1.4.1-76010"})");
  EXPECT_EQ(Key("patch_full"), kMiddle);
  EXPECT_EQ(Key("uniques_full"), "M1  0;");
  EXPECT_EQ(Key("patch_nano"), "VXM 1.4.1-76010 Update 2");
  EXPECT_EQ(Key("uniques_nano"), "M1  0;");
}

TEST_F(EqualCheck, FullAndSmallTogether) {
  AddNode(0, "M1", kLow);
  AddNode(3, "M2", "VXM 1.4.1-76010 Update 1");
  AddNode(4, "M2", kHigh);
  platform.upgrade_paths[kLow] = {"VXM 1.4.1-76010 Update 2"};
  platform.upgrade_paths["VXM 1.4.1-76010 Update 1"] = {"VXM 1.4.1-76010 Update 2"};
  EXPECT_EQ(Answer(R"({"nodes":[0,3]})"),
            R"(success {"available":true,"nodes":[0,3],"version":"VXM 1.4.1-76010 Update 2"})");
  EXPECT_EQ(Key("avaliable_full"), "true");
  EXPECT_EQ(Key("patch_full"), "VXM 1.4.1-76010");
  EXPECT_EQ(Key("uniques_full"), "M1  0;");
  EXPECT_EQ(Key("avaliable_nano"), "true");
  EXPECT_EQ(Key("patch_nano"), "VXM 1.4.1-76010 Update 2") << "the stop, as the highest is beyond";
  EXPECT_EQ(Key("uniques_nano"), "M1  0; M2  3;");
}

TEST_F(EqualCheck, WithoutASmallNumberThereIsOnlyTheFullList) {
  AddNode(0, "M1", kLow);
  AddNode(3, "M2", kHigh);
  platform.upgrade_paths[kLow] = {kMiddle};
  (void)Answer();
  EXPECT_EQ(Key("avaliable_nano"), "-");
  EXPECT_EQ(Key("uniques_full"), "M1  0;");
}

TEST_F(EqualCheck, AStopBelowTheNodeNeedsNothing) {
  AddNode(0, "M1", kMiddle);
  AddNode(3, "M2", kHigh);
  platform.upgrade_paths[kMiddle] = {kLow};
  EXPECT_EQ(Answer(), R"(success {"available":true,"nodes":[0],"version":"VXM 1.4.0-76000"})");
  EXPECT_EQ(Key("avaliable_full"), "false");
}

TEST_F(EqualCheck, AStopWhoseSmallNumberIsThereNeedsNothing) {
  AddNode(0, "M1", "VXM 1.4.1-76010 Update 2");
  AddNode(3, "M2", kHigh);
  platform.upgrade_paths["VXM 1.4.1-76010 Update 2"] = {"VXM 1.4.1-76010 Update 2"};
  (void)Answer();
  EXPECT_EQ(Key("avaliable_full"), "false");
  EXPECT_EQ(Key("avaliable_nano"), "-");
}

TEST_F(EqualCheck, VersionsThatCannotBeReadAreAGeneralFailure) {
  AddNode(0, "M1", kLow);
  AddNode(3, "M2", "other 1-76020");
  platform.upgrade_paths[kLow] = {kMiddle};
  EXPECT_EQ(Answer(), "error 117 null");
  EXPECT_THAT(Lines(), Contains("log 3 294 Parse highest_version version other 1-76020 fail"));
  EXPECT_EQ(Key("avaliable_full"), "-");
}

TEST_F(EqualCheck, AStopThatCannotBeReadIsAGeneralFailure) {
  AddNode(0, "M1", kLow);
  AddNode(3, "M2", kHigh);
  platform.upgrade_paths[kLow] = {"other 1-76010"};
  EXPECT_EQ(Answer(), "error 117 null");
  EXPECT_THAT(Lines(), Contains("log 3 299 Parse min_upgrade_version version other 1-76010 fail"));
}

TEST_F(EqualCheck, ANodesVersionThatCannotBeReadIsAGeneralFailure) {
  AddNode(0, "M1", "other 1-75000");
  AddNode(3, "M2", kHigh);
  platform.upgrade_paths["other 1-75000"] = {kHigh};
  EXPECT_EQ(Answer(), "error 117 null");
  EXPECT_THAT(Lines(), Contains("log 3 317 Parse node 0 current version other 1-75000 fail"));
  EXPECT_THAT(Writes(), Not(Contains(::testing::StartsWith("set"))));
}

TEST_F(EqualCheck, NothingEscapesToTheServer) {
  AddNode(0, "M1", "no version");
  AddNode(3, "M2", kHigh);
  EXPECT_EQ(Answer(), "error 117 null");
  EXPECT_THAT(Logs(),
              ElementsAre("7 No parameter, set default", "3 Exception: Input Version Incorrect"));
}

TEST_F(EqualCheck, AMeshThatCannotBeAskedIsAGeneralFailure) {
  platform.node_infos.code = 1;
  EXPECT_EQ(Answer(), "error 117 null");
  EXPECT_THAT(Lines("log 3"),
              ElementsAre("log 3 2303 Failed to get node infos",
                          MatchesRegex("log 3 [0-9]+ Exception: Failed to get node infos")));
}

TEST_F(EqualCheck, AnExceptionOfAnyTypeIsAnswered) {
  platform.throwers["client"] = fake::Throws(fake::NotStandard());
  EXPECT_EQ(Answer(), "error 117 null");
  EXPECT_THAT(Lines("log 3"), ElementsAre(MatchesRegex("log 3 [0-9]+ Exception: unknown")));
}

TEST_F(EqualCheck, ARecordThatCannotBeWrittenIsAGeneralFailure) {
  AddNode(0, "M1", kLow);
  AddNode(3, "M2", kHigh);
  platform.upgrade_paths[kLow] = {kHigh};
  platform.results["set /tmp/mesh_patch patch_full"] = -1;
  EXPECT_EQ(Answer(), "error 117 null");
}

class EqualStart : public fake::ModuleTest {};

TEST_F(EqualStart, TheCallerIsAnsweredAtOnce) {
  platform.fork_result = 4711;
  Call(WebapiUpgradeEqualStart);
  EXPECT_THAT(Lines(), ElementsAre("fork 0", "success null", "setsid"));
}

TEST_F(EqualStart, AFailedForkIsAnsweredAndNothingElse) {
  platform.fork_result = -1;
  Call(WebapiUpgradeEqualStart);
  EXPECT_THAT(Lines(), ElementsAre("fork 0", "error 5200 null"));
}

TEST_F(EqualStart, TheChildRunsTheProgramAndComesBackInSilence) {
  platform.fork_result = 0;
  for (const int status : {0, 1, 255}) {
    platform.on_program = [status](const auto&) { return status; };
    Call(WebapiUpgradeEqualStart);
  }
  const std::string exec = "exec /usr/kalo/sbin/kalomeshupgrade --updatecaptoequal";
  EXPECT_THAT(Lines(), ElementsAre("fork 0", "setsid", exec, "fork 0", "setsid", exec, "fork 0",
                                   "setsid", exec));
}

TEST_F(EqualStart, AProgramThatCannotBeRunLeavesOneLineAndNoProgress) {
  platform.fork_result = 0;
  platform.on_program = [](const auto&) { return -1; };
  Call(WebapiUpgradeEqualStart);
  EXPECT_THAT(LinesFrom("log"),
              ElementsAre("log 3 129 Fail to exec command kalomeshupgrade --updatecaptoequal",
                          "unlink /tmp/mesh_upgrade"));
  EXPECT_THAT(Answers(), IsEmpty()) << "the parent has answered";
}

class EqualCancel : public fake::ModuleTest {};

TEST_F(EqualCancel, AsksTheProgramToEnd) {
  platform.pid_file_result = 4711;
  Call(WebapiUpgradeEqualCancel);
  EXPECT_THAT(Lines(), ElementsAre("pid_file /var/run/meshupdatetoequal.pid", "kill 4711 15",
                                   "success null"));
}

TEST_F(EqualCancel, WithoutAPidFileNothingRuns) {
  platform.pid_file_result = -1;
  Call(WebapiUpgradeEqualCancel);
  EXPECT_THAT(Lines(), ElementsAre("pid_file /var/run/meshupdatetoequal.pid",
                                   "log 3 153 Unknown Exception: Update to equal is not running",
                                   "error 117 null"));
}

TEST_F(EqualCancel, APidOfZeroIsNeverSignalled) {
  platform.pid_file_result = 0;
  Call(WebapiUpgradeEqualCancel);
  EXPECT_THAT(LinesFrom("log"),
              ElementsAre("log 3 153 Unknown Exception: Invalid pid", "error 117 null"));
  EXPECT_THAT(Lines("kill"), IsEmpty());
}

TEST_F(EqualCancel, AProgramThatCannotBeSignalledIsAFailure) {
  platform.pid_file_result = 4711;
  platform.kill_result = -1;
  Call(WebapiUpgradeEqualCancel);
  EXPECT_THAT(
      LinesFrom("log"),
      ElementsAre("log 3 153 Unknown Exception: Failed to kill update to equal", "error 117 null"));
}

}  // namespace
}  // namespace KALO::MESH::Webapi
