#include "services/meshd/mesh_core.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <deque>
#include <filesystem>
#include <memory>

#include "host/core/file_lock.h"
#include "host/core/object_reader.h"
#include "host/core/pid_file.h"
#include "platform/core/key_value.h"
#include "platform/paths.h"
#include "tests/services/meshd/fake_node.h"
#include "tests/support/wait.h"

namespace kalo::meshd {
namespace {

using namespace std::chrono_literals;
using mesh::MeshCode;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace fs = std::filesystem;
namespace paths = KALO::paths;

constexpr const char* kFolder = "/var/lib/kalo/core-test";

class FakeCommands final : public NodeCommands {
 public:
  void AskAll(std::uint64_t round) override { rounds.push_back(round); }
  void Start(std::uint32_t id) override { starts.push_back(id); }

  std::vector<std::uint64_t> rounds;
  std::vector<std::uint32_t> starts;
};

class MeshCoreTest : public ::testing::Test {
 protected:
  MeshCoreTest() {
    fs::remove_all(kFolder);
    fs::remove(paths::kUpgradeProgress);
    for (std::uint32_t id = 0; id < 4; ++id) nodes_.emplace_back(id);
    Restart();
    Report(0);
  }

  void Restart() {
    core_.reset();
    store_ = std::make_unique<UpdateStore>(kFolder);
    history_ = std::make_unique<UpdateHistory>(kFolder);
    node_store_ = std::make_unique<NodeStore>(kFolder);
    core_ = std::make_unique<MeshCore>(FourNodes(), commands_, *store_, *history_, *node_store_,
                                       UpdateTiming{}, now_);
  }
  void Report(std::uint64_t round) {
    for (std::uint32_t id = 0; id < 4; ++id) core_->Reported(id, round, nodes_[id].Info(), now_);
  }
  void Request() {
    core_->RequestStart([this](MeshCode code) { answers_.push_back(code); }, now_);
  }
  static bool FileSays(const char* step, const char* percent) {
    return KLIBCFileCheckKeyValue(paths::kUpgradeProgress, "step", step, 0) == 1 &&
           KLIBCFileCheckKeyValue(paths::kUpgradeProgress, "percent", percent, 0) == 1;
  }

  std::deque<FakeNode> nodes_;
  TimePoint now_{};
  FakeCommands commands_;
  std::unique_ptr<UpdateStore> store_;
  std::unique_ptr<UpdateHistory> history_;
  std::unique_ptr<NodeStore> node_store_;
  std::unique_ptr<MeshCore> core_;
  std::vector<MeshCode> answers_;
};

TEST_F(MeshCoreTest, ARequestAsksTheNodesOnceMoreWhatIsStaged) {
  Request();
  EXPECT_THAT(commands_.rounds, ElementsAre(1));
  nodes_[3].Stage(kNewVersion);
  Report(0);  // asked before the request
  EXPECT_THAT(answers_, IsEmpty());
  Report(1);
  EXPECT_THAT(answers_, ElementsAre(MeshCode::kOk));
  EXPECT_THAT(commands_.starts, ElementsAre(3));
}

TEST_F(MeshCoreTest, ANodeThatHangsDelaysARequestForABoundedTime) {
  nodes_[0].Stage(kNewVersion);
  Request();
  for (const std::uint32_t id : {0U, 1U, 2U}) core_->Reported(id, 1, nodes_[id].Info(), now_);
  EXPECT_THAT(answers_, IsEmpty());
  now_ += MeshCore::kRefresh;
  core_->Tick(now_);
  EXPECT_THAT(answers_, ElementsAre(MeshCode::kOk));
}

TEST_F(MeshCoreTest, NothingStagedIsAnsweredSo) {
  Request();
  Report(1);
  EXPECT_THAT(answers_, ElementsAre(MeshCode::kNothingStaged));
  EXPECT_FALSE(fs::exists(paths::kUpgradeProgress));
}

TEST_F(MeshCoreTest, NoUpdateBeginsWhileNodesHoldPatchesOfABrokenDownload) {
  const auto put = [](const char* step, const char* version) {
    fs::remove(paths::kDownloadProgress);
    (void)KLIBCFileSetKeyValue(paths::kDownloadProgress, "step", step, 0);
    if (*version != '\0') {
      (void)KLIBCFileSetKeyValue(paths::kDownloadProgress, "version", version, 0);
    }
  };
  nodes_[1].Stage(kNewVersion);
  std::uint64_t round = 0;
  for (const char* step : {"failed", "canceled"}) {
    put(step, kNewVersion);
    Request();
    Report(++round);
    EXPECT_EQ(answers_.back(), MeshCode::kPatchesIncomplete) << step;
  }
  nodes_[1].Stage("");
  Request();
  Report(++round);
  EXPECT_EQ(answers_.back(), MeshCode::kNothingStaged) << "every node has confirmed";
  EXPECT_THAT(commands_.starts, IsEmpty());
  nodes_[1].Stage(kNewVersion);
  put("canceled", "");
  Request();
  Report(++round);
  EXPECT_EQ(answers_.back(), MeshCode::kOk) << "a cancel while an upload by hand ran";
  fs::remove(paths::kDownloadProgress);
}

TEST_F(MeshCoreTest, ANodeThatIsOfflineOverARestartKeepsItsIdentityAndNothingElse) {
  nodes_[3].Stage(kNewVersion);
  Report(0);
  core_->Tick(now_);
  Restart();
  nodes_[3].SetReachable(false);
  Report(0);
  const KnownNode& node = core_->Registry().Nodes().at(3);
  EXPECT_FALSE(node.online);
  ASSERT_TRUE(node.report);
  EXPECT_EQ(node.report->name, "node3");
  EXPECT_EQ(node.report->version, kOldVersion);
  Request();
  Report(1);
  EXPECT_THAT(answers_, ElementsAre(MeshCode::kNothingStaged));
}

TEST_F(MeshCoreTest, ANewVersionIsStillKnownAfterARestart) {
  core_->Tick(now_);
  nodes_[3].Boot(kNewVersion);
  Report(0);
  core_->Tick(now_);
  Restart();
  EXPECT_EQ(core_->Registry().Nodes().at(3).report->version, kNewVersion);
}

TEST_F(MeshCoreTest, ASecondRequestIsRefusedWhileOneIsPendingOrRuns) {
  nodes_[0].Stage(kNewVersion);
  Request();
  Request();
  EXPECT_THAT(answers_, ElementsAre(MeshCode::kUpdateRunning));
  Report(1);
  Request();
  EXPECT_THAT(answers_,
              ElementsAre(MeshCode::kUpdateRunning, MeshCode::kOk, MeshCode::kUpdateRunning));
}

TEST_F(MeshCoreTest, NoUpdateBeginsThatCannotBeSaved) {
  nodes_[0].Stage(kNewVersion);
  fs::remove_all(kFolder);
  Request();
  Report(1);
  EXPECT_THAT(answers_, ElementsAre(MeshCode::kCannotSaveState));
  EXPECT_THAT(commands_.starts, IsEmpty());
  EXPECT_EQ(core_->Record().state, UpdateState::kNone);
}

TEST_F(MeshCoreTest, ANodeIsOnDiskAsToldBeforeItIsTold) {
  nodes_[3].Stage(kNewVersion);
  Request();
  Report(1);
  EXPECT_THAT(commands_.starts, ElementsAre(3));
  EXPECT_EQ(UpdateStore(kFolder).Load().nodes.at(0).stage, NodeStage::kStarting);
}

// After the CAP's own restart it would be told once more, and refuse.
TEST_F(MeshCoreTest, ANodeIsNotToldAsLongAsThatCannotBeOnDisk) {
  for (const std::uint32_t id : {3U, 0U}) nodes_[id].Stage(kNewVersion);
  Request();
  Report(1);
  core_->StartAnswered(3, {StartOutcome::kAccepted, 0}, now_);
  fs::remove_all(kFolder);
  nodes_[3].Boot(kNewVersion);
  Report(2);
  EXPECT_THAT(commands_.starts, ElementsAre(3));
  fs::create_directories(kFolder);
  core_->Tick(now_ += 1s);
  EXPECT_THAT(commands_.starts, ElementsAre(3, 0));
}

TEST_F(MeshCoreTest, AnUnreachableNodeIsToldAgainAfterAPauseOnly) {
  nodes_[3].Stage(kNewVersion);
  Request();
  Report(1);
  core_->StartAnswered(3, {}, now_);
  Report(2);  // its worker asks it at once what it is at
  EXPECT_THAT(commands_.starts, ElementsAre(3));
  core_->Tick(now_ += 1s);
  EXPECT_THAT(commands_.starts, ElementsAre(3, 3));
}

TEST_F(MeshCoreTest, TheUpgradeFileFollowsTheUpdateFromBeginToEnd) {
  nodes_[3].Stage(kNewVersion);
  Request();
  Report(1);
  EXPECT_TRUE(FileSays("upgrading", "0"));
  core_->StartAnswered(3, nodes_[3].Start(), now_);
  nodes_[3].Report("updating_programs", 100);
  Report(1);
  core_->Tick(now_);
  EXPECT_TRUE(FileSays("upgrading", "60"));
  // The request writes its own word late.
  KLIBCFileSetKeyValue(paths::kUpgradeProgress, "percent", "0", 0);
  core_->Tick(now_);
  EXPECT_TRUE(FileSays("upgrading", "60"));
  nodes_[3].Boot(kNewVersion);
  Report(1);
  EXPECT_TRUE(FileSays("finished", "100"));
}

// Many nodes say something every second, and each file holds something of every node.
TEST_F(MeshCoreTest, WhatANodeSaysOnItsWayIsWrittenByTheNextTick) {
  for (const std::uint32_t id : {1U, 2U}) nodes_[id].Stage(kNewVersion);
  Request();
  Report(1);
  EXPECT_THAT(commands_.starts, ElementsAre(1, 2));
  for (const std::uint32_t id : {1U, 2U}) {
    core_->StartAnswered(id, nodes_[id].Start(), now_);
    nodes_[id].Report("updating_programs", 100);
  }
  Report(1);
  EXPECT_TRUE(FileSays("upgrading", "0"));
  EXPECT_EQ(UpdateStore(kFolder).Load().nodes.at(0).percent, 0);
  core_->Tick(now_);
  EXPECT_TRUE(FileSays("upgrading", "60"));
  EXPECT_EQ(UpdateStore(kFolder).Load().nodes.at(0).percent, 100);
}

// Otherwise a satellite that fails, or falls back, while the service restarts would install once
// more.
TEST_F(MeshCoreTest, AnOrderThatWasTakenIsOnDiskAtOnce) {
  for (const std::uint32_t id : {1U, 2U}) nodes_[id].Stage(kNewVersion);
  Request();
  Report(1);
  core_->StartAnswered(1, nodes_[1].Start(), now_);
  EXPECT_EQ(UpdateStore(kFolder).Load().nodes.at(0).stage, NodeStage::kInstalling);
  EXPECT_EQ(UpdateStore(kFolder).Load().nodes.at(1).stage, NodeStage::kStarting);
}

// Where somebody waits, no time is lost.
TEST_F(MeshCoreTest, ANodeThatIsToBeToldAgainIsToldWhenItIsHeard) {
  for (const std::uint32_t id : {1U, 2U}) nodes_[id].Stage(kNewVersion);
  Request();
  Report(1);
  core_->StartAnswered(1, {}, now_);
  core_->StartAnswered(2, nodes_[2].Start(), now_);
  now_ += 1s;
  core_->Reported(2, 1, nodes_[2].Info(), now_);
  EXPECT_THAT(commands_.starts, ElementsAre(1, 2));
  core_->Reported(1, 1, nodes_[1].Info(), now_);
  EXPECT_THAT(commands_.starts, ElementsAre(1, 2, 1));
}

TEST_F(MeshCoreTest, TheLastOfATurnGivesTheNextTurnAtOnce) {
  for (const std::uint32_t id : {0U, 1U, 2U}) nodes_[id].Stage(kNewVersion);
  Request();
  Report(1);
  for (const std::uint32_t id : {1U, 2U}) {
    core_->StartAnswered(id, nodes_[id].Start(), now_);
    nodes_[id].Boot(kNewVersion);
  }
  core_->Reported(1, 1, nodes_[1].Info(), now_);
  EXPECT_THAT(commands_.starts, ElementsAre(1, 2));
  core_->Reported(2, 1, nodes_[2].Info(), now_);
  EXPECT_THAT(commands_.starts, ElementsAre(1, 2, 0));
}

TEST_F(MeshCoreTest, TheCapsOwnRestartInTheMiddle) {
  nodes_[0].Stage(kNewVersion);
  Request();
  Report(1);
  EXPECT_THAT(commands_.starts, ElementsAre(0));
  core_->StartAnswered(0, nodes_[0].Start(), now_);
  nodes_[0].Report("reboot");
  Report(1);
  // The new boot: /tmp is empty, the service new.
  fs::remove(paths::kUpgradeProgress);
  nodes_[0].Boot(kNewVersion);
  Restart();
  core_->Tick(now_);
  EXPECT_TRUE(FileSays("upgrading", "70"));
  Report(0);
  EXPECT_TRUE(FileSays("finished", "100"));
  EXPECT_EQ(core_->Record().state, UpdateState::kFinished);
}

TEST_F(MeshCoreTest, AnUpdateThatHasEndedStandsInTheHistory) {
  nodes_[0].Stage(kNewVersion);
  Request();
  Report(1);
  core_->StartAnswered(0, nodes_[0].Start(), now_);
  EXPECT_FALSE(fs::exists(std::string(kFolder) + "/history.json"));
  nodes_[0].Boot(kNewVersion);
  Restart();
  Report(0);
  const auto updates = ReadJsonFile(std::string(kFolder) + "/history.json");
  ASSERT_EQ(updates.size(), 1U);
  EXPECT_EQ(updates[0]["cause"].asString(), "owner");
  EXPECT_EQ(updates[0]["result"].asString(), "finished");
  EXPECT_EQ(updates[0]["nodes"][0]["from"].asString(), kOldVersion);
  EXPECT_EQ(updates[0]["nodes"][0]["wanted"].asString(), kNewVersion);
}

TEST_F(MeshCoreTest, TheHistoryKnowsWhoWantedAnUpdate) {
  const auto update = [this] {
    nodes_[0].Stage(kNewVersion);
    Request();
    Report(commands_.rounds.back());
    return core_->Record().cause;
  };
  {
    const auto updater = FileLock::TryTake(paths::kAutoUpdateLock);
    EXPECT_EQ(update(), "automatic");
  }
  fs::remove_all(kFolder);
  Restart();
  Report(0);
  const pid_t equal = fork();  // its lock shows to other processes only
  if (equal == 0) {
    const auto file = PidFile::TryTake(paths::kEqualUpdatePid);
    pause();
    _exit(0);
  }
  EXPECT_TRUE(test::WaitFor([&] { return PidFile::Running(paths::kEqualUpdatePid) == equal; }));
  EXPECT_EQ(update(), "equal");
  kill(equal, SIGKILL);
  waitpid(equal, nullptr, 0);
}

}  // namespace
}  // namespace kalo::meshd
