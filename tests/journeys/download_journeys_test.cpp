// A published firmware on its way to every node: downloaded once for each model, handed on,
// installed; and what becomes of a download that is cancelled, killed, or finds no space.

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "tests/journeys/support/mesh_box.h"
#include "tests/support/wait.h"

namespace kalo::journeys {
namespace {

class DownloadJourney : public testing::Test {
 protected:
  explicit DownloadJourney(const std::vector<std::string>& options = {})
      : mesh_(testing::UnitTest::GetInstance()->current_test_info()->name(), options) {}

  void PublishNext() const { mesh_.Publish({"kalo_m1-76010", "kalo_m2-76010"}); }
  void ExpectAllRun(const std::string& version) const {
    for (int node = 0; node < 4; ++node) {
      EXPECT_EQ(mesh_.RunningVersion(node), version) << "node " << node;
    }
  }
  std::string Shell(const std::string& script) const {
    return mesh_.Exec(0, {"sh", "-c", script}).out;
  }
  [[nodiscard]] std::string DownloadStatus() const {
    return mesh_.Cli({"progress", "--download"}).data["status"].asString();
  }
  // @return whether nobody holds the patch lock, at once or soon.
  [[nodiscard]] bool LockIsFree() const {
    return test::WaitFor(
        [&] {
          return mesh_.Exec(0, {"flock", "-n", "/var/lock/mesh_patch.lock", "true"}).status == 0;
        },
        MeshBox::kDeadline);
  }
  // The whole way again: whatever happened before must not stand in it.
  void ExpectAFreshDownloadSucceeds() const {
    const Answer download = mesh_.Cli({"download", "--promotion"});
    EXPECT_EQ(download.status, 0) << download.text;
    EXPECT_EQ(download.data["version"], kNext);
    EXPECT_EQ(mesh_.Status()["status"], "ready_upgrade");
    for (int node = 0; node < 4; ++node) EXPECT_TRUE(mesh_.WaitForStaged(node, kNext)) << node;
  }
  // Starts a download and comes back at once.
  void StartDownload() const {
    ASSERT_EQ(mesh_.Cli({"check"}).status, 0);
    // What the command line does first; it would wait for the end.
    Shell(
        "setsid /usr/kalo/bin/kalo-mesh --local download --promotion >/dev/null 2>&1 "
        "</dev/null &");
    EXPECT_TRUE(test::WaitFor([&] { return DownloadStatus() != "none"; }, MeshBox::kDeadline));
  }

  MeshBox mesh_;
};

TEST_F(DownloadJourney, OneCommandFindsFetchesHandsOutAndInstalls) {
  PublishNext();
  const Answer upgrade = mesh_.Cli({"upgrade", "--yes", "--accept-licence"});
  EXPECT_EQ(upgrade.status, 0) << upgrade.text;
  ExpectAllRun(kNext);
  EXPECT_TRUE(mesh_.WaitForStatus("none"));
  EXPECT_EQ(Shell("ls /volume1/@mesh_full"), "kalo_m1_76010.pat\n") << "the CAP's own one stays";
  EXPECT_EQ(mesh_.Cli({"notifications"}).data["notifications"].size(), 2U)
      << "the offer and the download";
  EXPECT_EQ(mesh_.Cli({"upgrade", "--yes", "--accept-licence"}).status, 0)
      << "and then there is nothing to do";
}

TEST_F(DownloadJourney, AFullTmpKeepsNeitherStatusNorStartFromWorking) {
  PublishNext();
  ASSERT_EQ(mesh_.Cli({"check"}).status, 0);
  ExpectAFreshDownloadSucceeds();
  // "cat" ends with an error when nothing more fits.
  ASSERT_EQ(mesh_.Exec(0, {"sh", "-c", "! cat /dev/zero >/tmp/fill"}).status, 0);
  EXPECT_EQ(mesh_.Status()["status"], "ready_upgrade");
  const Answer start = mesh_.Cli({"start", "--wait"});
  EXPECT_EQ(start.status, 0) << start.text;
  ExpectAllRun(kNext);
}

TEST_F(DownloadJourney, AnAutomaticUpgradeKeepsOthersOut) {
  PublishNext();
  // As a timer does: nobody waits for it, and the CAP's restart takes the command with it.
  Shell(
      "setsid /usr/kalo/bin/kalo-mesh --local upgrade --auto --accept-licence --json "
      ">/tmp/auto.log 2>&1 "
      "</dev/null &");
  EXPECT_TRUE(
      test::WaitFor([&] { return mesh_.Cli({"check"}).Code() == 5202; }, MeshBox::kDeadline));
  EXPECT_TRUE(test::WaitFor([&] { return mesh_.RunningVersion(0) == kNext; }, MeshBox::kDeadline))
      << Shell("cat /tmp/auto.log /tmp/mesh_download /tmp/mesh_upgrade");
  EXPECT_TRUE(mesh_.WaitForStatus("none"));
  ExpectAllRun(kNext);
}

class AutomaticMesh : public DownloadJourney {
 protected:
  AutomaticMesh() : DownloadJourney({"--auto-upgrade", "1"}) {}
};

TEST_F(AutomaticMesh, InstallsByItselfWhatIsPublished) {
  PublishNext();
  for (int node = 0; node < 4; ++node) {
    EXPECT_TRUE(
        test::WaitFor([&] { return mesh_.RunningVersion(node) == kNext; }, MeshBox::kDeadline))
        << "node " << node;
  }
  EXPECT_TRUE(mesh_.WaitForStatus("none"));
}

TEST_F(DownloadJourney, ACancelledDownloadLeavesTheMeshReadyForTheNext) {
  PublishNext();
  StartDownload();
  EXPECT_EQ(mesh_.Cli({"cancel"}).status, 0);
  EXPECT_TRUE(LockIsFree());
  const std::string status = DownloadStatus();
  EXPECT_TRUE(status == "canceled" || status == "failed" || status == "finished") << status;
  EXPECT_EQ(Shell("ls /volume1/@mesh_full | grep part"), "");
  ExpectAFreshDownloadSucceeds();
}

// When a download's process is killed, as a shell in the CAP's own box sees it.
constexpr std::array kMoments = {
    "true",
    "grep -q version= /tmp/mesh_download",
    "[ -s /volume1/@mesh_full/kalo_m2_76010.pat.part ]",
    "grep -q 'percent=\"2' /tmp/mesh_download",
    "[ -e /volume1/@mesh_full/kalo_m2_76010.pat ]",
    "[ -e /volume1/@mesh_full/kalo_m1_76010.pat.part ]",
    "grep -q finished /tmp/mesh_download",
    "[ -e /volume1/@node_patch/patch.pat ]",
    "grep -q ready_upgrade /tmp/mesh_upgrade",
};

// Starts a download and kills its process: of the sessions that workers lead, the one that was not
// there before. A moment that passes unseen, because the download is quick, lets it end by itself.
std::string KillWhen(const std::string& has_come) {
  return R"(
workers() { grep -lx webapid-worker /proc/[0-9]*/comm 2>/dev/null; }
before=$(workers)
setsid /usr/kalo/bin/kalo-mesh --local download --promotion >/dev/null 2>&1 </dev/null &
child() {
  for comm in $(workers); do
    case $before in *$comm*) continue;; esac
    set -- $(cat ${comm%comm}stat 2>/dev/null)
    [ "$6" = "$1" ] && child=$1 && return
  done
  false
}
until child; do :; done
while kill -0 $child 2>/dev/null; do
  if )" + has_come +
         R"(; then kill -9 $child; echo killed; exit; fi
done
)";
}

TEST_F(DownloadJourney, ADeadDownloadLeavesTheMeshReadyForTheNextWheneverItDied) {
  PublishNext();
  int killed = 0;
  for (const char* moment : kMoments) {
    SCOPED_TRACE(moment);
    ASSERT_EQ(mesh_.Cli({"check"}).status, 0);
    if (Shell(KillWhen(moment)) == "killed\n") ++killed;
    EXPECT_TRUE(LockIsFree());
    const auto is_told = [&] {
      const std::string word = mesh_.Status()["status"].asString();
      return word == "ready_upgrade" || (word == "none" && DownloadStatus() == "failed");
    };
    EXPECT_TRUE(test::WaitFor(is_told, MeshBox::kDeadline))
        << Shell("cat /tmp/mesh_download /tmp/mesh_upgrade");
    EXPECT_EQ(Shell("ls /volume1/@mesh_full | grep part"), "");
    ExpectAFreshDownloadSucceeds();
  }
  EXPECT_GE(killed, 6) << "too many moments pass unseen";
}

// The download is nobody's child then, and goes on.
TEST_F(DownloadJourney, AServerThatDiesDoesNotTakeTheDownloadWithIt) {
  PublishNext();
  StartDownload();
  Shell(
      "kill -9 $(for p in /proc/[0-9]*; do read -r name <$p/comm && "
      "[ \"$name\" = webapid ] && basename $p; done)");
  EXPECT_TRUE(LockIsFree());
  EXPECT_TRUE(mesh_.WaitForStatus("ready_upgrade"));
  ExpectAFreshDownloadSucceeds();
}

TEST_F(DownloadJourney, AFullDiskIsToldAndMended) {
  PublishNext();
  ASSERT_EQ(mesh_.Cli({"check"}).status, 0);
  mesh_.Event(0, "fill-disk");
  const Answer full = mesh_.Cli({"download", "--promotion"});
  EXPECT_EQ(full.status, 1) << full.text;
  EXPECT_EQ(DownloadStatus(), "no_enough_free_space");
  EXPECT_NE(full.text.find("free space"), std::string::npos);
  mesh_.Event(0, "free-disk");
  ExpectAFreshDownloadSucceeds();
}

TEST_F(DownloadJourney, AFailedDownloadLeavesNoNodeWithAPatchThatCouldBeStarted) {
  PublishNext();
  ASSERT_EQ(mesh_.Cli({"check"}).status, 0);
  mesh_.Event(2, "fill-disk");
  EXPECT_EQ(mesh_.Cli({"download", "--promotion"}).status, 1);
  EXPECT_EQ(DownloadStatus(), "failed");
  EXPECT_EQ(mesh_.Cli({"start"}).Code(), 9001);
  for (int node = 0; node < 4; ++node) EXPECT_TRUE(mesh_.WaitForStaged(node, "")) << node;
  EXPECT_EQ(mesh_.Cli({"start"}).Code(), 9001);
  for (int node = 0; node < 4; ++node) EXPECT_EQ(mesh_.RunningVersion(node), kFirst) << node;
  mesh_.Event(2, "free-disk");
  ExpectAFreshDownloadSucceeds();
}

// The record of a check is not the record of a check for equal versions.
TEST_F(DownloadJourney, AnEqualStartDoesNotInstallWhatAnOrdinaryCheckFound) {
  PublishNext();
  ASSERT_EQ(mesh_.Cli({"check"}).status, 0);
  Shell("sed -i 's/_promo=/_full=/' /tmp/mesh_patch");
  const Outcome refused = mesh_.Exec(0, {"/usr/kalo/sbin/kalomeshupgrade", "--updatecaptoequal"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("is not a version up to the highest one"), std::string::npos)
      << refused.err;
  EXPECT_EQ(Shell("cat /tmp/mesh_upgrade 2>/dev/null"), "") << "nothing was touched";
  ExpectAllRun(kFirst);
}

TEST_F(DownloadJourney, CleanDropsEverything) {
  PublishNext();
  ASSERT_EQ(mesh_.Cli({"check"}).status, 0);
  ExpectAFreshDownloadSucceeds();
  EXPECT_EQ(mesh_.Cli({"clean"}).status, 0);
  EXPECT_EQ(mesh_.Status()["status"], "none");
  EXPECT_EQ(Shell("ls /volume1/@mesh_full /volume1/@mesh_nano | grep pat"), "");
  for (int node = 0; node < 4; ++node) EXPECT_TRUE(mesh_.WaitForStaged(node, "")) << node;
}

TEST_F(DownloadJourney, WithoutACheckThatFoundAPromotionNothingIsFetched) {
  PublishNext();
  EXPECT_EQ(mesh_.Cli({"download"}).Code(), 117) << "it is a promotion, and was not asked for";
  EXPECT_TRUE(mesh_.LogHas("Failed to get patch available info"));
}

class OldMeshDownload : public DownloadJourney {
 protected:
  OldMeshDownload() : DownloadJourney({"--first-version", "VXM 1.3.1-9346"}) {}
};

TEST_F(OldMeshDownload, AFullUpdateAndItsSmallOneAreInstalledInOneRestart) {
  mesh_.Publish({"kalo_m1-9400", "kalo_m1-9400-2", "kalo_m2-9400", "kalo_m2-9400-2"});
  const Answer upgrade = mesh_.Cli({"upgrade", "--yes", "--accept-licence"});
  EXPECT_EQ(upgrade.status, 0) << upgrade.text;
  ExpectAllRun("VXM 1.3.2-9400 Update 2");
  for (int node = 0; node < 4; ++node) {
    EXPECT_EQ(mesh_.Exec(node, {"cat", "/usr/kalo/bin/nothing"}).out, "nothing to run\n") << node;
  }
  EXPECT_TRUE(mesh_.WaitForStatus("none"));
}

}  // namespace
}  // namespace kalo::journeys
