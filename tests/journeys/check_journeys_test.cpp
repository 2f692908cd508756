// How a mesh finds its own updates: published in the maker's feed, found by the check, recorded,
// and told to the administrators.

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "tests/journeys/support/mesh_box.h"
#include "tests/support/wait.h"

namespace kalo::journeys {
namespace {

const std::vector<std::string> kBothModels76010 = {"kalo_m1-offer-76010", "kalo_m2-offer-76010"};

class CheckJourney : public testing::Test {
 protected:
  explicit CheckJourney(const std::vector<std::string>& options = {})
      : mesh_(testing::UnitTest::GetInstance()->current_test_info()->name(), options) {}

  // @return the answer's data; its text where the check was refused.
  [[nodiscard]] Json::Value Check() const {
    const Answer answer = mesh_.Cli({"check"});
    EXPECT_EQ(answer.status, 0) << answer.text;
    return answer.data;
  }
  [[nodiscard]] std::string Record() const { return mesh_.Exec(0, {"cat", "/tmp/mesh_patch"}).out; }
  [[nodiscard]] bool RecordHas(const std::string& line) const {
    return ("\n" + Record()).find("\n" + line + "\n") != std::string::npos;
  }
  [[nodiscard]] Json::Value Notifications() const {
    return mesh_.Cli({"notifications"}).data["notifications"];
  }
  void Shell(const std::string& script) const {
    const Outcome outcome = mesh_.Exec(0, {"sh", "-c", script});
    EXPECT_EQ(outcome.status, 0) << script << ": " << outcome.err;
  }
  // Keeps a lock file locked in the CAP until it restarts.
  void HoldLock(const std::string& path) const {
    Shell("setsid flock -x " + path + " sleep 1000 >/dev/null 2>&1 </dev/null &");
    EXPECT_TRUE(test::WaitFor(
        [&] {
          return mesh_.Exec(0, {"flock", "-n", path, "true"}).status != 0;
        },
        MeshBox::kDeadline));
  }

  MeshBox mesh_;
};

TEST_F(CheckJourney, APublishedReleaseIsOfferedRecordedAndAnnouncedOnce) {
  mesh_.Publish(kBothModels76010);
  const Json::Value first = Check();
  EXPECT_EQ(first["available"], false);
  EXPECT_EQ(first["promotion"], true);
  EXPECT_EQ(first["promotion_version"], "VXM 1.4.0-76010");
  EXPECT_EQ(first["beta_version"], false);
  EXPECT_EQ(first["over_version"], false);
  EXPECT_EQ(first["type"], "hbx");
  EXPECT_FALSE(first.isMember("version"));
  EXPECT_EQ(Record(),
            "avaliable_promo=\"true\"\npatch_promo=\"VXM 1.4.0-76010\"\n"
            "uniques_promo=\"kalo_m1  0 2; kalo_m2  1 3;\"\n");
  const Json::Value told = Notifications();
  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(Check(), first);
  EXPECT_EQ(Notifications(), told) << "a second check must notify nobody";
  const std::string id = told[0]["id"].asString();
  EXPECT_EQ(mesh_.Cli({"notifications", "--dismiss", id}).status, 0);
  EXPECT_EQ(Notifications().size(), 0U);
  EXPECT_EQ(mesh_.Cli({"notifications", "--dismiss", id}).status, 0) << "it is gone, as asked for";
  // A hand's check is refused while an automatic update runs, an automatic one is part of it.
  HoldLock("/run/kalo/auto_update.lock");
  EXPECT_EQ(mesh_.Cli({"check"}).Code(), 5202);
  EXPECT_EQ(mesh_.Cli({"check", "--auto"}).status, 0);
}

TEST_F(CheckJourney, NothingNewClearsTheAnnouncement) {
  mesh_.Publish(kBothModels76010);
  (void)Check();
  ASSERT_EQ(Notifications().size(), 1U);
  std::filesystem::remove_all(mesh_.Feed());
  mesh_.Publish({"kalo_m1-offer-76000", "kalo_m2-offer-76000"});
  const Json::Value data = Check();
  EXPECT_EQ(data["available"], false);
  EXPECT_FALSE(data.isMember("promotion"));
  EXPECT_EQ(data["over_version"], false);
  EXPECT_TRUE(RecordHas("avaliable_full=\"false\""));
  EXPECT_TRUE(RecordHas("over_version=\"false\""));
  EXPECT_FALSE(RecordHas("avaliable_promo=\"true\""));
  EXPECT_EQ(Notifications().size(), 0U);
}

TEST_F(CheckJourney, AStagedReleaseIsOfferedWhenItReachesTheGroup) {
  Shell(R"(echo 'rolling_group_id="1237"' >>/etc/kaloinfo.conf)");
  mesh_.Publish(kBothModels76010, {"--groups", "0-4", "--field-build", "76000"});
  EXPECT_FALSE(Check().isMember("promotion"));
  for (const std::string model : {"kalo_m1", "kalo_m2"}) {
    const auto folder = mesh_.Feed() / "v2" / model / "76000";
    std::filesystem::copy_file(folder / "0.json", folder / "7.json",
                               std::filesystem::copy_options::overwrite_existing);
  }
  EXPECT_FALSE(Check().isMember("promotion")) << "only the unsigned document says so";
  EXPECT_TRUE(mesh_.LogHas("is not released for this router"));
  mesh_.Publish(kBothModels76010, {"--groups", "0-7"});
  EXPECT_EQ(Check()["promotion_version"], "VXM 1.4.0-76010");
}

TEST_F(CheckJourney, ABetaReleaseIsOfferedAsOne) {
  mesh_.Publish(kBothModels76010, {"--phase", "Beta", "--field-build", "76000"});
  const Json::Value data = Check();
  EXPECT_EQ(data["promotion"], true);
  EXPECT_EQ(data["beta_version"], true);
  EXPECT_TRUE(mesh_.LogHas("Fetching RSS V2 from URL: https://127.0.0.100/autoupdate/v2/getList"));
  const auto folder = mesh_.Feed().string() + "/v2";
  ASSERT_EQ(
      RunProgram({"/bin/sh", "-c", "sed -i 's/\"Beta\"/\"\"/' " + folder + "/*/*/*.json"}).status,
      0);
  EXPECT_FALSE(Check().isMember("promotion")) << "only the unsigned document calls it finished";
}

TEST_F(CheckJourney, AListThatDoesNotHoldIsNoOfferAndOneLogLineSaysWhy) {
  mesh_.Publish(kBothModels76010);
  std::ofstream(mesh_.Feed() / "v1/kalo_m1/list.json", std::ios::app) << " ";
  std::ofstream(mesh_.Feed() / "v1/kalo_m2/list.json", std::ios::app) << " ";
  EXPECT_EQ(Check()["available"], false);
  EXPECT_TRUE(mesh_.LogHas("/v1/kalo_m1/list.json: its signature is bad"));
}

TEST_F(CheckJourney, AStaleDownloadIsDroppedAndKeptWhileSomebodyTransfersIt) {
  mesh_.Publish(kBothModels76010);
  const std::string download =
      R"(printf 'step="finished"\npercent="100"\nversion="VXM 1.4.0-76005"\n' >/tmp/mesh_download)";
  Shell(download);
  EXPECT_FALSE(Check().isMember("version"));
  EXPECT_NE(mesh_.Exec(0, {"test", "-e", "/tmp/mesh_download"}).status, 0);
  Shell(download);
  HoldLock("/var/lock/mesh_patch.lock");
  const Json::Value data = Check();
  EXPECT_EQ(data["available"], true);
  EXPECT_EQ(data["version"], "VXM 1.4.0-76005");
  EXPECT_EQ(mesh_.Exec(0, {"test", "-e", "/tmp/mesh_download"}).status, 0);
}

class OldMesh : public CheckJourney {
 protected:
  OldMesh() : CheckJourney({"--first-version", "VXM 1.3.1-9346"}) {}
};

TEST_F(OldMesh, AFullUpdateBelow76000ComesWithASmallOne) {
  mesh_.Publish({"kalo_m1-9400", "kalo_m1-9400-2", "kalo_m2-9400", "kalo_m2-9400-2"});
  const Json::Value data = Check();
  EXPECT_EQ(data["available"], true);
  EXPECT_EQ(data["version"], "VXM 1.3.2-9400 Update 2");
  EXPECT_EQ(data["type"], "smallupdate");
  EXPECT_TRUE(RecordHas("avaliable_full=\"true\""));
  EXPECT_TRUE(RecordHas("patch_full=\"VXM 1.3.2-9400\""));
  EXPECT_TRUE(RecordHas("uniques_full=\"kalo_m1  0 2; kalo_m2  1 3;\""));
  EXPECT_TRUE(RecordHas("avaliable_nano=\"true\""));
  EXPECT_TRUE(RecordHas("patch_nano=\"VXM 1.3.2-9400 Update 2\""));
  EXPECT_TRUE(RecordHas("uniques_nano=\"kalo_m1  0 2; kalo_m2  1 3;\""));
  EXPECT_EQ(Notifications().size(), 1U);
}

class NewerMesh : public CheckJourney {
 protected:
  NewerMesh() : CheckJourney({"--first-version", "VXM 1.4.0-76020", "--auto-check", "1"}) {}
};

TEST_F(NewerMesh, ANewerNodeIsToldAndLooksByItself) {
  mesh_.Publish(kBothModels76010);
  const Json::Value data = Check();
  EXPECT_EQ(data["available"], false);
  EXPECT_EQ(data["over_version"], true);
  // Its own checks remove the key for a moment.
  EXPECT_TRUE(
      test::WaitFor([&] { return RecordHas("over_version=\"true\""); }, MeshBox::kDeadline));
  EXPECT_TRUE(
      test::WaitFor([&] { return mesh_.LogHas("Start auto patch check"); }, MeshBox::kDeadline));
}

}  // namespace
}  // namespace kalo::journeys
