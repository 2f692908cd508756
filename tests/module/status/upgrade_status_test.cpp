#include <stdexcept>

#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

using Status = MESH_UPGRADE_STATUS;

// The numbers are part of the contract with who links the module.
static_assert(sizeof(Status) == 4);
static_assert(static_cast<int>(Status::NONE) == 0);
static_assert(static_cast<int>(Status::READY_TO_UPGRADE) == 1);
static_assert(static_cast<int>(Status::UPGRADING) == 2);
static_assert(static_cast<int>(Status::DOWNLOADING) == 3);
static_assert(static_cast<int>(Status::MESH_SYSTEM_ERROR) == 4);
static_assert(static_cast<int>(Status::SYSTEM_BUSY) == 5);
static_assert(static_cast<int>(Status::MESH_VERSION_NOT_EQUAL) == 6);

class UpgradeStatus : public fake::ModuleTest {
 protected:
  void SetUp() override {
    platform.AddNode(0, "kalo_cap1", 76000);
    platform.AddNode(1, "kalo_m1", 76000);
    platform.system_status.nodes = {{0, false}, {1, false}};
  }
  void Upgrade(const std::string& step, const std::string& percent = "0") {
    platform.files["/tmp/mesh_upgrade"] = {{"step", step}, {"percent", percent}};
  }
  void Download(const std::string& step, const std::string& percent = "0") {
    platform.files["/tmp/mesh_download"] = {{"step", step}, {"percent", percent}};
  }
  void Offer(const std::string& key, const std::string& value = "true") {
    platform.files["/tmp/mesh_patch"][key] = value;
  }
  std::string Ask(KALO::APIHandler entry, const std::string& parameters) {
    platform.journal.Clear();
    Call(entry, parameters);
    EXPECT_EQ(Answers().size(), 1U);
    return Answers().at(0);
  }
  std::string V1(const std::string& parameters = "{}") {
    return Ask(WebapiUpgradeStatusV1, parameters);
  }
  std::string V2(const std::string& parameters = "{}") {
    return Ask(WebapiUpgradeStatusV2, parameters);
  }
};

constexpr const char* kNone = R"(success {"allow_upgrade":true,"status":"none"})";
constexpr const char* kOffline =
    R"(success {"allow_upgrade":false,"reason":"node_offline","status":"mesh_system_error"})";
constexpr const char* kReady =
    R"(success {"allow_upgrade":true,"patch_info":{"reboot":true,"restart_all":false,)"
    R"("restart_some":false,"upgradetype":"hbxupdate"},"status":"ready_upgrade"})";
constexpr const char* kNotEqual =
    R"(success {"allow_upgrade":true,"status":"mesh_version_not_equal"})";

TEST_F(UpgradeStatus, EveryValueHasItsRow) {
  const auto row = [this](Status status) {
    Json::Value out(Json::objectValue);
    handler.SetStatusResp(status, "why", 12, out);
    return fake::ToText(out);
  };
  Offer("avaliable_full");
  EXPECT_EQ(row(Status::NONE), R"({"allow_upgrade":true,"status":"none"})");
  EXPECT_EQ("success " + row(Status::READY_TO_UPGRADE), kReady);
  EXPECT_EQ(row(Status::UPGRADING), R"({"allow_upgrade":false,"percent":12,"status":"upgrading"})");
  EXPECT_EQ(row(Status::DOWNLOADING),
            R"({"allow_upgrade":false,"percent":12,"status":"downloading"})");
  EXPECT_EQ(row(Status::MESH_SYSTEM_ERROR),
            R"({"allow_upgrade":false,"reason":"why","status":"mesh_system_error"})");
  EXPECT_EQ(row(Status::SYSTEM_BUSY),
            R"({"allow_upgrade":false,"reason":"why","status":"system_busy"})");
  EXPECT_EQ(row(Status::MESH_VERSION_NOT_EQUAL),
            R"({"allow_upgrade":true,"status":"mesh_version_not_equal"})");
  EXPECT_EQ(row(static_cast<Status>(7)), R"({"allow_upgrade":false,"status":"none"})");
  EXPECT_EQ(row(static_cast<Status>(-1)), R"({"allow_upgrade":false,"status":"none"})");
}

TEST_F(UpgradeStatus, AnAutomaticUpdateIsUpgradingWhateverTheFilesSay) {
  platform.auto_updating = true;
  Upgrade("ready_upgrade", "50");
  const std::string expected =
      R"(success {"allow_upgrade":false,"percent":0,"status":"upgrading"})";
  EXPECT_EQ(V1(), expected);
  EXPECT_THAT(Lines(), fake::ElementsAre("bool auto", "bool skip_offline", "auto_updating",
                                         fake::MatchesRegex("log 7 [0-9]+ Auto update is running"),
                                         expected));
  EXPECT_EQ(V2(), expected);
  EXPECT_THAT(Lines(), fake::ElementsAre("bool auto", "bool skip_re_status", "auto_updating",
                                         fake::MatchesRegex("log 7 [0-9]+ Auto update is running"),
                                         expected));
}

TEST_F(UpgradeStatus, AutoTrueDoesNotAskWhetherOneRuns) {
  platform.auto_updating = true;
  EXPECT_EQ(V1(R"({"auto": true})"), kNone);
  EXPECT_THAT(Lines("auto_updating"), fake::IsEmpty());
  EXPECT_EQ(V2(R"({"auto": true})"), kNone);
  EXPECT_THAT(Lines("auto_updating"), fake::IsEmpty());
}

TEST_F(UpgradeStatus, AnInvalidAutoCountsAsFalse) {
  platform.auto_updating = true;
  EXPECT_NE(V1(R"({"auto": "yes"})"), kNone);
}

TEST_F(UpgradeStatus, V1AsksInItsOrder) {
  EXPECT_EQ(V1(), kNone);
  EXPECT_THAT(Lines(),
              fake::ElementsAre("bool auto", "bool skip_offline", "auto_updating", "client",
                                "node_infos", "access_infos", "exist /tmp/mesh_upgrade", "client",
                                "system_status", "exist /tmp/mesh_download", kNone));
}

TEST_F(UpgradeStatus, V2AsksTheSystemStatusBeforeTheFiles) {
  EXPECT_EQ(V2(), kNone);
  EXPECT_THAT(Lines(),
              fake::ElementsAre("bool auto", "bool skip_re_status", "auto_updating", "client",
                                "node_infos", "access_infos", "client", "system_status",
                                "exist /tmp/mesh_upgrade", "exist /tmp/mesh_download", kNone));
}

TEST_F(UpgradeStatus, UpgradingComesBeforeOffline) {
  Upgrade("upgrading", "33");
  platform.system_status.nodes[1].offline = true;
  const std::string expected =
      R"(success {"allow_upgrade":false,"percent":33,"status":"upgrading"})";
  EXPECT_EQ(V1(), expected);
  EXPECT_THAT(Lines("system_status"), fake::IsEmpty());
  EXPECT_EQ(V2(), expected);
}

TEST_F(UpgradeStatus, OfflineComesBeforeReady) {
  Upgrade("ready_upgrade");
  Offer("avaliable_full");
  platform.system_status.nodes[1].offline = true;
  EXPECT_EQ(V1(), kOffline);
  EXPECT_EQ(V2(), kOffline);
}

TEST_F(UpgradeStatus, SkippingPassesOverOfflineNodes) {
  Upgrade("ready_upgrade");
  Offer("avaliable_full");
  platform.system_status.nodes[1].offline = true;
  platform.system_status.syncing = true;
  EXPECT_EQ(V1(R"({"skip_offline": true})"), kReady);
  EXPECT_THAT(Lines("system_status"), fake::IsEmpty());
  EXPECT_EQ(V2(R"({"skip_re_status": true})"), kReady);
  EXPECT_EQ(Lines("system_status").size(), 1U);
}

TEST_F(UpgradeStatus, OnlyV2KnowsSyncingAndPutsItBeforeOffline) {
  platform.system_status.syncing = true;
  EXPECT_EQ(V1(), kNone);
  platform.system_status.nodes[1].offline = true;
  EXPECT_EQ(V2(), R"(success {"allow_upgrade":false,"reason":"mesh_status_syncing",)"
                  R"("status":"mesh_system_error"})");
}

TEST_F(UpgradeStatus, OnlyV2TestsTheSystemStatusCode) {
  platform.system_status.code = 9;
  EXPECT_EQ(V1(), kNone);
  EXPECT_EQ(V2(R"({"skip_re_status": true})"), "error 117 null");
  EXPECT_THAT(Logs(), fake::ElementsAre(
                          "3 Exception: GetMeshSystemStatus failed with code [9][words for 9]"));
}

TEST_F(UpgradeStatus, ReadyTellsTheKindOfUpdate) {
  Upgrade("ready_upgrade");
  Offer("avaliable_nano");
  EXPECT_EQ(V1(), R"(success {"allow_upgrade":true,"patch_info":{"reboot":true,)"
                  R"("restart_all":false,"restart_some":false,"upgradetype":"smallupdate"},)"
                  R"("status":"ready_upgrade"})");
  Offer("avaliable_promo");
  EXPECT_EQ(V1(), kReady);
}

TEST_F(UpgradeStatus, WithoutAPatchThereIsNoPatchInfo) {
  Json::Value info;
  try {
    handler.GetPatchInfo(info);
    FAIL();
  } catch (const WebapiException& e) {
    EXPECT_STREQ(e.what(), "Failed to get patch type");
  }
}

TEST_F(UpgradeStatus, PatchInfoIsReadWithItsBuffers) {
  Upgrade("ready_upgrade");
  Offer("avaliable_full");
  V1();
  EXPECT_THAT(Lines("get /tmp/mesh_patch"),
              fake::ElementsAre("get /tmp/mesh_patch avaliable_full 8192",
                                "get /tmp/mesh_patch avaliable_nano 8192",
                                "get /tmp/mesh_patch avaliable_promo 8192"));
}

TEST_F(UpgradeStatus, ReadyWithoutPatchInformationDegradesToNone) {
  Upgrade("ready_upgrade");
  for (const char* value : {"True", "1", "false", "true "}) {
    Offer("avaliable_full", value);
    EXPECT_EQ(V2(), kNone) << value;
    EXPECT_THAT(Logs(), fake::ElementsAre(
                            "4 READY_TO_UPGRADE but patch info unavailable, falling back to NONE"));
  }
  platform.files.erase("/tmp/mesh_patch");
  EXPECT_EQ(V1(), kNone);
  EXPECT_THAT(Logs(), fake::ElementsAre(
                          "4 READY_TO_UPGRADE but patch info unavailable, falling back to NONE"));
  platform.throwers["get /tmp/mesh_patch"] = fake::Throws(fake::NotStandard());
  EXPECT_EQ(V1(), kNone);
}

TEST_F(UpgradeStatus, AValueThatWasNotReadDoesNotCount) {
  Upgrade("ready_upgrade");
  Offer("avaliable_full");
  platform.results["get /tmp/mesh_patch avaliable_full"] = 0;
  EXPECT_EQ(V1(), kNone);
}

TEST_F(UpgradeStatus, DownloadingAndFinishedAreDownloading) {
  for (const char* step : {"downloading", "finished"}) {
    Download(step, "61");
    const std::string expected =
        R"(success {"allow_upgrade":false,"percent":61,"status":"downloading"})";
    EXPECT_EQ(V1(), expected);
    EXPECT_EQ(V2(), expected);
  }
  for (const char* step : {"failed", "canceled", "download", "downloading2"}) {
    Download(step);
    EXPECT_EQ(V1(), kNone) << step;
    EXPECT_EQ(V2(), kNone) << step;
  }
}

TEST_F(UpgradeStatus, V2TellsDifferentVersionsUnlessSkipped) {
  platform.AddNode(1, "kalo_m1", 76010);
  EXPECT_EQ(V1(), kNone);
  EXPECT_EQ(V2(), kNotEqual);
  EXPECT_EQ(V2(R"({"skip_re_status": true})"), kNone);
  Download("finished", "100");
  EXPECT_NE(V2(), kNotEqual);
}

TEST_F(UpgradeStatus, ADeadMeshServiceFailsBothVersionsEvenWhileUpgrading) {
  Upgrade("upgrading", "33");
  platform.node_infos.code = 1;
  EXPECT_EQ(V1(), "error 117 null");
  EXPECT_THAT(Logs(), fake::ElementsAre("3 Failed to get node infos",
                                        "3 Exception: Failed to get node infos"));
  EXPECT_EQ(V2(), "error 117 null");
}

TEST_F(UpgradeStatus, ABadProgressFileFails) {
  Upgrade("upgrading", "101");
  EXPECT_EQ(V1(), "error 117 null");
  EXPECT_EQ(V2(), "error 117 null");
}

TEST_F(UpgradeStatus, ABadDownloadFileFailsToo) {
  Download("downloading", "101");
  for (const auto entry : {WebapiUpgradeStatusV1, WebapiUpgradeStatusV2}) {
    EXPECT_EQ(Ask(entry, "{}"), "error 117 null");
    EXPECT_THAT(Logs(),
                fake::ElementsAre("3 Invaild progress percentage [101] from /tmp/mesh_download",
                                  "3 Exception: Invaild progress percentage"));
  }
}

TEST_F(UpgradeStatus, MapsEachKindOfException) {
  for (const auto entry : {WebapiUpgradeStatusV1, WebapiUpgradeStatusV2}) {
    platform.journal.Clear();
    platform.throwers["auto_updating"] = fake::Throws(WebapiParamException("bad"));
    Call(entry);
    platform.throwers["auto_updating"] = fake::Throws(WebapiException("failed"));
    Call(entry);
    platform.throwers["auto_updating"] = fake::Throws(std::runtime_error("worse"));
    Call(entry);
    EXPECT_THAT(Answers(), fake::ElementsAre("error 403 null", "error 117 null", "error 117 null"));
    EXPECT_THAT(Logs(), fake::ElementsAre("3 Parameter Error: bad", "3 Exception: failed",
                                          "3 Exception: worse"));
  }
}

}  // namespace
}  // namespace KALO::MESH::Webapi
