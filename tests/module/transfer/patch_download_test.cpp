#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

using fake::ElementsAre;
using fake::IsEmpty;

// Parent and child write into one journal: what the child does stands behind "setsid" of both.
class DownloadStartRequest : public fake::ModuleTest {
 protected:
  DownloadStartRequest() {
    platform.AddNode(0, "M1", 9346);
    platform.AddNode(3, "M2", 9346);
    platform.files["/etc.defaults/kaloinfo.conf"]["unique"] = "M1";
    for (const int node : {0, 3}) {
      platform.upload_envelopes[node] = fake::FromText(R"({"success":true,"data":{}})");
    }
    platform.fork_result = 0;  // this process is the child, unless a test says otherwise
  }

  void Offer(const std::string& kind, const std::string& version, const std::string& groups) {
    auto& file = platform.files["/tmp/mesh_patch"];
    file["avaliable_" + kind] = "true";
    file["patch_" + kind] = version;
    file["uniques_" + kind] = groups;
  }

  // The child's side ends its process: so it runs in one of its own.
  void Start(const std::string& parameters = "{}") {
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      KALO::APIRequest call(fake::FromText(parameters));
      KALO::APIResponse answer;
      WebapiUpgradeDownloadStart(&call, &answer);
      _exit(99);  // came back
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    exit_status_ = WEXITSTATUS(status);
  }

  // @return without what is only read or logged.
  static std::vector<std::string> Acts(std::vector<std::string> lines) {
    std::erase_if(lines, [](const std::string& line) {
      return line.starts_with("get ") || line.starts_with("log ") || line.starts_with("client") ||
             line.starts_with("node_infos") || line.starts_with("access_infos");
    });
    return lines;
  }

  int exit_status_ = -1;
};

TEST_F(DownloadStartRequest, PreparesUnderTheLockThenForks) {
  Offer("full", "VXM 1.3.2-9400", "M1  0; M2  3;");
  platform.fork_result = 4711;  // the parent's side
  Call(WebapiUpgradeDownloadStart);
  EXPECT_THAT(
      Lines(),
      ElementsAre("bool is_promotion", "cred_init", "get /tmp/mesh_patch avaliable_full 8192",
                  "get /tmp/mesh_patch patch_full 8192", "get /tmp/mesh_patch uniques_full 8192",
                  "get /tmp/mesh_patch avaliable_nano 8192", "lock /var/lock/mesh_patch.lock 1 -1",
                  "unlink /tmp/mesh_download", "unlink /tmp/mesh_upgrade",
                  "set /tmp/mesh_download step=downloading", "set /tmp/mesh_download percent=0",
                  "exec /bin/rm -rf /volume1/@mesh_full", "mkdirp /volume1/@mesh_full 0 1 -1 -1",
                  "exec /bin/rm -rf /volume1/@mesh_nano", "mkdirp /volume1/@mesh_nano 0 1 -1 -1",
                  "fork 0", "success null", "setsid"));
}

TEST_F(DownloadStartRequest, TheChildDownloadsUploadsAndSaysSo) {
  Offer("full", "VXM 1.3.2-9400", "M1  0; M2  3;");
  Start();
  EXPECT_EQ(exit_status_, 0);
  EXPECT_THAT(
      Acts(LinesFrom("setsid")),
      ElementsAre("setsid", "send KALO.Core.Upgrade.Patch clean 1 0 3",
                  "set /tmp/mesh_download version=VXM 1.3.2-9400", "convert VXM 1.3.2-9400",
                  "target M2 VXM 1.3.2-9400", "job_set 2 0 0 0",
                  "download /volume1/@mesh_full manual", "job_get", "patch_path M2 9400",
                  R"(upload 3 KALO.Core.Upgrade.Patch upload 1 {"base_ver_num":""} /store/M2_9400)",
                  "patch_clean /volume1/@mesh_full", "convert VXM 1.3.2-9400",
                  "target M1 VXM 1.3.2-9400", "job_set 2 1 10 25",
                  "download /volume1/@mesh_full manual", "job_get", "patch_path M1 9400",
                  R"(upload 0 KALO.Core.Upgrade.Patch upload 1 {"base_ver_num":""} /store/M1_9400)",
                  "set /tmp/mesh_patch uploaded_list= 3 0",
                  "set /tmp/mesh_upgrade step=ready_upgrade", "set /tmp/mesh_upgrade percent=0",
                  "notify success manual VXM 1.3.2-9400", "unlock 41"));
  EXPECT_THAT(Answers(), IsEmpty()) << "the child answers nothing";
  EXPECT_THAT(Logs(), ElementsAre("7 Start Download Patches, target version is [VXM 1.3.2-9400], "
                                  "base version is []",
                                  "7 Start Download Patch and Upload", "7 Start Upload Patch",
                                  "7 Start Download Patch and Upload", "7 Start Upload Patch"));
}

TEST_F(DownloadStartRequest, OnlyANegativeResultOfTheVersionsWriteIsAFailure) {
  Offer("full", "VXM 1.3.2-9400", "M2  3;");
  platform.results["set /tmp/mesh_download version"] = 0;
  Start();
  EXPECT_EQ(exit_status_, 0);
  EXPECT_THAT(Lines("set /tmp/mesh_upgrade step"),
              ElementsAre("set /tmp/mesh_upgrade step=ready_upgrade"));
}

TEST_F(DownloadStartRequest, TheSmallUpdateComesAfterTheFullOneAndOnTopOfIt) {
  Offer("full", "VXM 1.3.2-9400", "M2  3;");
  Offer("nano", "VXM 1.3.2-9400 Update 2", "M2  3;");
  Start();
  EXPECT_THAT(Lines("set /tmp/mesh_download version"),
              ElementsAre("set /tmp/mesh_download version=VXM 1.3.2-9400 Update 2"));
  EXPECT_THAT(Lines("job_set"), ElementsAre("job_set 2 0 0 0", "job_set 2 1 10 25"));
  EXPECT_THAT(Lines("download"), ElementsAre("download /volume1/@mesh_full manual",
                                             "download /volume1/@mesh_nano manual"));
  EXPECT_THAT(Lines("upload"),
              ElementsAre(R"(upload 3 KALO.Core.Upgrade.Patch upload 1 {"base_ver_num":""} )"
                          "/store/M2_9400",
                          R"(upload 3 KALO.Core.Upgrade.Patch upload 1 {"base_ver_num":"9400"} )"
                          "/store/M2_9400 Update 2"));
  EXPECT_THAT(Lines("notify"), ElementsAre("notify success manual VXM 1.3.2-9400 Update 2"));
}

// The group of the CAP goes last, and is asked for just like the others.
TEST_F(DownloadStartRequest, TheGroupOfTheCapGetsTheSmallUpdateToo) {
  Offer("full", "VXM 1.3.2-9400", "M1  0; M2  3;");
  Offer("nano", "VXM 1.3.2-9400 Update 2", "M1  0; M2  3;");
  Start();
  EXPECT_THAT(Lines("job_set"), ElementsAre("job_set 4 0 0 0", "job_set 4 1 10 25",
                                            "job_set 4 2 20 50", "job_set 4 3 30 75"));
  EXPECT_THAT(
      Lines("download"),
      ElementsAre("download /volume1/@mesh_full manual", "download /volume1/@mesh_full manual",
                  "download /volume1/@mesh_nano manual", "download /volume1/@mesh_nano manual"));
  EXPECT_EQ(Lines("upload").back(),
            R"(upload 0 KALO.Core.Upgrade.Patch upload 1 {"base_ver_num":"9400"} )"
            "/store/M1_9400 Update 2");
}

TEST_F(DownloadStartRequest, TheGroupOfTheCapGetsThePromotionToo) {
  Offer("promo", "VXM 1.4.0-76010", "M1  0; M2  3;");
  Start(R"({"is_promotion":true})");
  EXPECT_THAT(Lines("download"), ElementsAre("download /volume1/@mesh_full manual promotion",
                                             "download /volume1/@mesh_full manual promotion"));
}

TEST_F(DownloadStartRequest, ASmallUpdateAloneHasNoBase) {
  Offer("nano", "VXM 1.3.1-9346 Update 2", "M2  3;");
  Start();
  EXPECT_THAT(Lines("convert"), ElementsAre("convert VXM 1.3.1-9346 Update 2"));
  EXPECT_THAT(Lines("upload"),
              ElementsAre(R"(upload 3 KALO.Core.Upgrade.Patch upload 1 {"base_ver_num":""} )"
                          "/store/M2_9346 Update 2"));
  EXPECT_THAT(Lines("set /tmp/mesh_download version"),
              ElementsAre("set /tmp/mesh_download version=VXM 1.3.1-9346 Update 2"));
}

TEST_F(DownloadStartRequest, APromotionIsReadFromItsOwnKeysAndTheSmallOneLeftAlone) {
  Offer("promo", "VXM 1.4.0-76010", "M2  3;");
  Offer("nano", "VXM 1.3.1-9346 Update 2", "M2  3;");
  Start(R"({"is_promotion":true})");
  EXPECT_THAT(Lines("get /tmp/mesh_patch"), ElementsAre("get /tmp/mesh_patch avaliable_promo 8192",
                                                        "get /tmp/mesh_patch patch_promo 8192",
                                                        "get /tmp/mesh_patch uniques_promo 8192"));
  EXPECT_THAT(Lines("download"), ElementsAre("download /volume1/@mesh_full manual promotion"));
}

TEST_F(DownloadStartRequest, OfSeveralGroupsWithTheCapTheLastOneGoesLast) {
  platform.AddNode(5, "M3", 9346);
  platform.upload_envelopes[5] = fake::FromText(R"({"success":true,"data":{}})");
  Offer("full", "VXM 1.3.2-9400", "M1  0; M1  0 5; M2  3;");
  Start();
  EXPECT_THAT(Lines("target"), ElementsAre("target M2 VXM 1.3.2-9400", "target M1 VXM 1.3.2-9400"));
  EXPECT_THAT(Lines("job_set"), ElementsAre("job_set 3 0 0 0", "job_set 3 1 10 25"));
  EXPECT_THAT(Lines("set /tmp/mesh_patch uploaded_list"),
              ElementsAre("set /tmp/mesh_patch uploaded_list= 3 0 5"));
}

TEST_F(DownloadStartRequest, AnEmptySatelliteGroupIsDownloadedAllTheSame) {
  Offer("full", "VXM 1.3.2-9400", "M2;");
  Start();
  EXPECT_EQ(Lines("download").size(), 1U);
  EXPECT_THAT(Lines("patch_clean"), ElementsAre("patch_clean /volume1/@mesh_full"));
}

TEST_F(DownloadStartRequest, WithoutGroupsNothingIsDownloadedAndTheMeshIsReady) {
  Offer("full", "VXM 1.3.2-9400", "");
  Start();
  EXPECT_THAT(Lines("download"), IsEmpty());
  EXPECT_THAT(Logs(), IsEmpty());
  EXPECT_EQ(Lines("set /tmp/mesh_upgrade step").size(), 1U);
}

TEST_F(DownloadStartRequest, NothingAvailableIsLookedForOnceMore) {
  platform.regular_offers["M1"] = {true, "hbx", "VXM 1.3.2-9400"};
  platform.regular_offers["M2"] = {true, "hbx", "VXM 1.3.2-9400"};
  platform.fork_result = 4711;
  Call(WebapiUpgradeDownloadStart);
  EXPECT_THAT(Answers(), ElementsAre("success null"));
  EXPECT_EQ(Lines("get /tmp/mesh_patch avaliable").size(), 4U);
  EXPECT_EQ(Lines("regular_check manual").size(), 2U);
}

TEST_F(DownloadStartRequest, NothingAvailableAtAllChangesNothing) {
  platform.files["/tmp/mesh_download"] = {{"step", "failed"}};
  Call(WebapiUpgradeDownloadStart);
  EXPECT_THAT(Answers(), ElementsAre("error 117 null"));
  EXPECT_EQ(Logs().back(), "3 Exception: Failed to get patch available info");
  EXPECT_THAT(Lines("lock"), IsEmpty());
  EXPECT_THAT(Lines("unlock"), ElementsAre("unlock -1"));
  EXPECT_THAT(Lines("unlink /tmp/mesh"), IsEmpty());
}

TEST_F(DownloadStartRequest, WithoutCredentialsNothingIsRead) {
  Offer("full", "VXM 1.3.2-9400", "M2  3;");
  for (const int result : {1, -1}) {
    platform.journal.Clear();
    platform.cred_result = result;
    Call(WebapiUpgradeDownloadStart);
    EXPECT_THAT(Answers(), ElementsAre("error 117 null"));
    EXPECT_THAT(Logs(), ElementsAre("3 Exception: Fail to init kalocredential"));
    EXPECT_THAT(Lines("get"), IsEmpty());
  }
}

TEST_F(DownloadStartRequest, StoresThatCannotBeEmptiedOrWereThereAreTakenAsTheyAre) {
  Offer("full", "VXM 1.3.2-9400", "M2  3;");
  platform.on_program = [](const auto&) { return 1; };
  platform.results["mkdirp /volume1/@mesh_full"] = 1;
  platform.fork_result = 4711;
  Call(WebapiUpgradeDownloadStart);
  EXPECT_THAT(Answers(), ElementsAre("success null"));
}

TEST_F(DownloadStartRequest, ABusyLockIsAGeneralFailureHere) {
  Offer("full", "VXM 1.3.2-9400", "M2  3;");
  platform.lock_result = 0;
  Call(WebapiUpgradeDownloadStart);
  EXPECT_THAT(Answers(), ElementsAre("error 117 null"));
  EXPECT_THAT(Logs(), ElementsAre("3 Exception: Get patch lock failed"));
  EXPECT_THAT(Lines("unlink"), IsEmpty());
  EXPECT_THAT(Lines("unlock"), ElementsAre("unlock -1"));
}

struct Preparation {
  const char* name;
  const char* call;
  const char* cause;
};

class FailingPreparation : public DownloadStartRequest,
                           public ::testing::WithParamInterface<Preparation> {};

TEST_P(FailingPreparation, FreesTheLockAndLeavesWhatWasDone) {
  Offer("full", "VXM 1.3.2-9400", "M2  3;");
  platform.results[GetParam().call] = -1;
  Call(WebapiUpgradeDownloadStart);
  EXPECT_THAT(
      LinesFrom("unlock"),
      ElementsAre("unlock 41",
                  fake::MatchesRegex(std::string("log 3 [0-9]+ Exception: ") + GetParam().cause),
                  "error 117 null"))
      << "who asks at once is not refused by the lock of an answered request";
  EXPECT_THAT(Lines("fork"), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Download, FailingPreparation,
                         ::testing::Values(Preparation{"FullStore", "mkdirp /volume1/@mesh_full",
                                                       "Failed to create folder for full patches"},
                                           Preparation{"NanoStore", "mkdirp /volume1/@mesh_nano",
                                                       "Failed to create folder for nano patches"}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(DownloadStartRequest, ExceptionsBeforeTheForkAreAnsweredAndFreeTheLock) {
  Offer("full", "VXM 1.3.2-9400", "M2  3;");
  platform.throwers["mkdirp"] = fake::Throws(WebapiParamException("bad"));
  Call(WebapiUpgradeDownloadStart);
  EXPECT_THAT(LinesFrom("unlock"),
              ElementsAre("unlock 41", fake::MatchesRegex("log 3 [0-9]+ Parameter Error: bad"),
                          "error 403 null"));
  platform.journal.Clear();
  platform.throwers["mkdirp"] = fake::Throws(fake::NotStandard());
  Call(WebapiUpgradeDownloadStart);
  EXPECT_THAT(LinesFrom("unlock"),
              ElementsAre("unlock 41", fake::MatchesRegex("log 3 [0-9]+ Exception: unknown"),
                          "error 117 null"));
}

TEST_F(DownloadStartRequest, AFailedForkIsAnsweredAndNothingElse) {
  Offer("full", "VXM 1.3.2-9400", "M2  3;");
  platform.fork_result = -1;
  Call(WebapiUpgradeDownloadStart);
  EXPECT_THAT(LinesFrom("fork"), ElementsAre("fork 0", "error 5200 null"));
}

struct ChildFailure {
  const char* name;
  std::function<void(fake::Platform&)> apply;
  const char* cause;
};

class FailingChild : public DownloadStartRequest,
                     public ::testing::WithParamInterface<ChildFailure> {};

TEST_P(FailingChild, SaysFailedNotifiesFreesTheLockAndEndsWithZero) {
  Offer("full", "VXM 1.3.2-9400", "M2  3;");
  GetParam().apply(platform);
  Start();
  EXPECT_EQ(exit_status_, 0);
  const std::vector<std::string> acts = Acts(Lines());
  ASSERT_GE(acts.size(), 4U);
  EXPECT_THAT(std::vector<std::string>(acts.end() - 4, acts.end()),
              ElementsAre("set /tmp/mesh_download step=failed", "set /tmp/mesh_download percent=0",
                          "notify failure manual VXM 1.3.2-9400", "unlock 41"));
  EXPECT_EQ(Logs().back(), std::string("3 Exception: ") + GetParam().cause);
}

INSTANTIATE_TEST_SUITE_P(
    Download, FailingChild,
    ::testing::Values(
        ChildFailure{"Version", [](auto& p) { p.results["set /tmp/mesh_download version"] = -1; },
                     "Fail to write download version"},
        ChildFailure{"Convert",
                     [](auto& p) {
                       p.files["/tmp/mesh_patch"]["patch_full"] = "VXM 1.3.2-9400";
                       p.throwers["convert"] = fake::Throws(std::runtime_error("no version"));
                     },
                     "no version"},
        ChildFailure{"Download", [](auto& p) { p.download_result = false; },
                     "Failed to start download process"},
        ChildFailure{"UnknownNode",
                     [](auto& p) { p.files["/tmp/mesh_patch"]["uniques_full"] = "M2  9;"; },
                     "Failed to create upload work"},
        ChildFailure{"Upload",
                     [](auto& p) {
                       p.upload_envelopes[3] =
                           fake::FromText(R"({"success":false,"error":{"code":5221}})");
                     },
                     "Upload may failed or write to file failed"},
        ChildFailure{"Result", [](auto& p) { p.results["set /tmp/mesh_patch uploaded_list"] = -1; },
                     "Upload may failed or write to file failed"},
        ChildFailure{"NotStandard",
                     [](auto& p) { p.throwers["download"] = fake::Throws(fake::NotStandard()); },
                     "unknown"},
        ChildFailure{"Notification",
                     [](auto& p) {
                       p.throwers["notify success"] = fake::Throws(std::runtime_error("no store"));
                     },
                     "no store"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(DownloadStartRequest, AVersionThatCannotBeConvertedFails) {
  Offer("full", "9400", "M2  3;");
  Start();
  EXPECT_EQ(Logs().back(), "3 Exception: Failed to convert version string to pure version number");
}

TEST_F(DownloadStartRequest, ABaseThatCannotBeConvertedFailsToo) {
  std::array<int, 4> job{};
  std::vector<UpgradeHandler::UploadWork> works;
  EXPECT_THROW(handler.DownloadPatchAndUpload("VXM 1.3.2-9400 Update 2", {"M2", false, {3}}, true,
                                              "9400", job[0], job[1], job[2], job[3], works, false),
               WebapiException);
  EXPECT_TRUE(works.empty());
  EXPECT_THAT(Lines("download"), ElementsAre());
}

TEST_F(DownloadStartRequest, ATroubleInTheFailureItselfStillFreesTheLock) {
  Offer("full", "VXM 1.3.2-9400", "M2  3;");
  platform.download_result = false;
  platform.throwers["set /tmp/mesh_download step=failed"] =
      fake::Throws(std::runtime_error("disk"));
  platform.throwers["notify"] = fake::Throws(fake::NotStandard());
  Start();
  EXPECT_EQ(exit_status_, 0);
  EXPECT_EQ(Lines().back(), "unlock 41");
  const std::vector<std::string> logs = Logs();
  ASSERT_GE(logs.size(), 2U);
  EXPECT_EQ(logs.end()[-2], "3 Exception: disk");
  EXPECT_EQ(logs.end()[-1], "3 Failed to send notification");
}

TEST_F(DownloadStartRequest, NoTroubleOfAnyTypeKeepsTheChildFromItsEnd) {
  Offer("full", "VXM 1.3.2-9400", "M2  3;");
  platform.download_result = false;
  platform.throwers["set /tmp/mesh_download step=failed"] = fake::Throws(fake::NotStandard());
  Start();
  EXPECT_EQ(exit_status_, 0);
  EXPECT_EQ(Lines("notify failure").size(), 1U);
  EXPECT_EQ(Lines().back(), "unlock 41");
}

TEST_F(DownloadStartRequest, NodesThatCannotBeCleanedDoNotStopTheDownload) {
  Offer("full", "VXM 1.3.2-9400", "M2  3;");
  platform.throwers["send"] = fake::Throws(fake::NotStandard());
  Start();
  EXPECT_EQ(Logs().front(), "3 Failed to cleanup patchs");
  EXPECT_EQ(Lines("notify success").size(), 1U);
}

TEST_F(DownloadStartRequest, NodesThatCannotBeListedDoNotStopTheDownload) {
  Offer("full", "VXM 1.3.2-9400", "");
  platform.node_infos.code = 1;
  Start();
  EXPECT_THAT(Logs(), ElementsAre("3 Failed to get node infos", "3 Failed to cleanup patchs"));
  EXPECT_THAT(Lines("set /tmp/mesh_upgrade step"),
              ElementsAre("set /tmp/mesh_upgrade step=ready_upgrade"));
}

TEST_F(DownloadStartRequest, AHeldBackGroupWithoutNodesIsNotDownloaded) {
  std::array<int, 4> job{};
  std::vector<UpgradeHandler::UploadWork> works;
  handler.DownloadPatches("VXM 1.3.2-9400", {{"M1", true, {0}}, {"M1", true, {}}}, false, "",
                          job[0], job[1], job[2], job[3], works, false);
  EXPECT_THAT(Lines("download"), IsEmpty()) << "of several groups of the CAP the last one counts";
}

}  // namespace
}  // namespace KALO::MESH::Webapi
