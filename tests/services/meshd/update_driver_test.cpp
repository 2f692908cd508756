#include "services/meshd/update_driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <memory>

#include "services/meshd/update_progress.h"
#include "tests/services/meshd/fake_node.h"

namespace kalo::meshd {
namespace {

using namespace std::chrono_literals;
using mesh::MeshCode;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class UpdateDriverTest : public ::testing::Test {
 protected:
  UpdateDriverTest() {
    for (std::uint32_t id = 0; id < 4; ++id) nodes_.emplace_back(id);
    for (FakeNode& node : nodes_) node.Stage(kNewVersion);
    Beat();
  }

  // Every node is asked once, a second passes, and the driver moves.
  // @return the nodes that were told to install.
  std::vector<std::uint32_t> Beat() {
    now_ += 1s;
    for (std::uint32_t id = 0; id < nodes_.size(); ++id) {
      const auto report = FakeNodeApi(nodes_[id]).Info();
      if (!report) {
        registry_.Silent(id, now_);
        continue;
      }
      registry_.Answered(*report, now_);
      driver_->Observed(*report, now_);
    }
    std::vector<std::uint32_t> starts = driver_->Step(now_);
    for (const std::uint32_t id : starts) {
      driver_->StartAnswered(id, FakeNodeApi(nodes_[id]).Start(), now_);
    }
    CheckShown();
    return starts;
  }

  void Pass(std::chrono::seconds time) { now_ += time; }

  void CheckShown() {
    const auto progress = ProgressOf(driver_->Record());
    EXPECT_GE(progress.total_percentage, last_total_);
    EXPECT_EQ(progress.total_percentage == 100, driver_->Record().state == UpdateState::kFinished);
    last_total_ = progress.total_percentage;
  }

  // The service is started anew on what is on the disk.
  void Restart() {
    driver_ = std::make_unique<UpdateDriver>(UpdateRecordFromJson(ToJson(driver_->Record())),
                                             UpdateTiming{}, now_);
  }

  MeshCode Begin() {
    const MeshCode code = driver_->Begin(registry_);
    if (code == MeshCode::kOk) last_total_ = 0;
    return code;
  }

  // From the beginning to the CAP's turn.
  void UpdateSatellites() {
    ASSERT_EQ(Begin(), MeshCode::kOk);
    Beat();
    nodes_[3].Boot(kNewVersion);
    Beat();
    nodes_[1].Boot(kNewVersion);
    nodes_[2].Boot(kNewVersion);
    Beat();
  }

  NodeStage StageOf(std::uint32_t id) const { return driver_->Record().nodes.at(id).stage; }
  UpdateState State() const { return driver_->Record().state; }

  std::deque<FakeNode> nodes_;
  TimePoint now_{};
  NodeRegistry registry_{FourNodes()};
  std::unique_ptr<UpdateDriver> driver_ =
      std::make_unique<UpdateDriver>(UpdateRecord{}, UpdateTiming{}, now_);
  int last_total_ = 0;
};

TEST_F(UpdateDriverTest, FarthestFirstEquallyFarAtOnceAndTheCapLast) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  EXPECT_THAT(Beat(), ElementsAre(3));
  EXPECT_THAT(Beat(), IsEmpty());
  nodes_[3].Boot(kNewVersion);
  EXPECT_THAT(Beat(), ElementsAre(1, 2));
  nodes_[2].Boot(kNewVersion);
  EXPECT_THAT(Beat(), IsEmpty());
  nodes_[1].Boot(kNewVersion);
  EXPECT_THAT(Beat(), ElementsAre(0));
  nodes_[0].Boot(kNewVersion);
  Beat();
  EXPECT_EQ(State(), UpdateState::kFinished);
}

TEST_F(UpdateDriverTest, TheAnswerOfANodeInItsOldBootIsNoSuccess) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  Beat();
  nodes_[3].Report("finish", 100);
  Beat();
  EXPECT_EQ(StageOf(3), NodeStage::kInstalling);
}

TEST_F(UpdateDriverTest, ASecondBeginIsRefusedWhileOneRuns) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  EXPECT_EQ(Begin(), MeshCode::kUpdateRunning);
}

TEST_F(UpdateDriverTest, NothingStagedIsRefused) {
  for (FakeNode& node : nodes_) node.Stage("");
  Beat();
  EXPECT_EQ(Begin(), MeshCode::kNothingStaged);
  EXPECT_EQ(State(), UpdateState::kNone);
}

TEST_F(UpdateDriverTest, ANodeWithNothingStagedIsNotPartOfIt) {
  for (const std::uint32_t id : {0U, 1U, 3U}) nodes_[id].Stage("");
  Beat();
  ASSERT_EQ(Begin(), MeshCode::kOk);
  EXPECT_THAT(Beat(), ElementsAre(2));
  nodes_[2].Boot(kNewVersion);
  Beat();
  EXPECT_EQ(State(), UpdateState::kFinished);
}

TEST_F(UpdateDriverTest, StagedOnOfflineNodesOnlyIsNothingStaged) {
  for (const std::uint32_t id : {0U, 1U, 2U}) nodes_[id].Stage("");
  nodes_[3].SetReachable(false);
  for (int i = 0; i < 3; ++i) Beat();
  EXPECT_EQ(Begin(), MeshCode::kNothingStaged);
}

TEST_F(UpdateDriverTest, AnOfflineNodeIsReportedAndStays) {
  nodes_[3].SetReachable(false);
  for (int i = 0; i < 3; ++i) Beat();
  ASSERT_EQ(Begin(), MeshCode::kOk);
  EXPECT_THAT(Beat(), ElementsAre(1, 2));
  nodes_[1].Boot(kNewVersion);
  nodes_[2].Boot(kNewVersion);
  Beat();
  nodes_[0].Boot(kNewVersion);
  Beat();
  EXPECT_EQ(State(), UpdateState::kFinished);
  EXPECT_EQ(nodes_[3].Starts(), 0);
  const auto progress = ProgressOf(driver_->Record());
  EXPECT_EQ(progress.error_number, static_cast<int>(mesh::UpdateError::kOffline));
  EXPECT_EQ(progress.err_desc, "node 3 (node3) was left out");
}

TEST_F(UpdateDriverTest, OneFailedSatelliteDoesNotStopTheOthers) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  Beat();
  nodes_[3].FailInstall(5224, "disk full");
  EXPECT_THAT(Beat(), ElementsAre(1, 2));
  nodes_[1].Boot(kNewVersion);
  nodes_[2].Boot(kNewVersion);
  EXPECT_THAT(Beat(), ElementsAre(0));
  nodes_[0].Boot(kNewVersion);
  Beat();
  EXPECT_EQ(State(), UpdateState::kFailed);
  const auto progress = ProgressOf(driver_->Record());
  EXPECT_EQ(progress.step, "failed");
  EXPECT_EQ(progress.error_number, 5224);
  EXPECT_EQ(progress.err_desc, "node 3 (node3) could not install");
  EXPECT_EQ(progress.err_msg, "cannot write: disk full");
  EXPECT_LT(progress.total_percentage, 100);
}

TEST_F(UpdateDriverTest, TheReportOfAnEarlierFailureDoesNotFailANewInstallation) {
  nodes_[3].FailInstall(5224, "last week");
  Beat();
  ASSERT_EQ(Begin(), MeshCode::kOk);
  Beat();
  Beat();
  EXPECT_EQ(StageOf(3), NodeStage::kInstalling);
  nodes_[3].Report("updating_programs", 10);
  Beat();
  nodes_[3].FailInstall(5224, "today");
  Beat();
  EXPECT_EQ(StageOf(3), NodeStage::kFailed);
}

TEST_F(UpdateDriverTest, AFailureThatStaysAfterTheStartCounts) {
  nodes_[3].FailInstall(5224, "last week");
  Beat();
  ASSERT_EQ(Begin(), MeshCode::kOk);
  for (int i = 0; i < 12; ++i) Beat();
  EXPECT_EQ(StageOf(3), NodeStage::kFailed);
}

TEST_F(UpdateDriverTest, FallingBackIsAFailure) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  Beat();
  nodes_[3].Boot(kOldVersion);
  Beat();
  EXPECT_EQ(StageOf(3), NodeStage::kFailed);
  const NodeError& error = driver_->Record().nodes[3].error;
  EXPECT_EQ(error.number, static_cast<int>(mesh::UpdateError::kFellBack));
  EXPECT_THAT(error.message, HasSubstr(std::string("runs ") + kOldVersion));
}

TEST_F(UpdateDriverTest, ANodeThatNeverComesBackFailsAtTheDeadline) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  Beat();
  nodes_[3].Report("reboot");
  Beat();
  nodes_[3].SetReachable(false);
  Pass(177s);
  Beat();
  EXPECT_EQ(StageOf(3), NodeStage::kInstalling);
  Pass(1s);
  EXPECT_THAT(Beat(), ElementsAre(1, 2));
  EXPECT_EQ(driver_->Record().nodes[3].error.number,
            static_cast<int>(mesh::UpdateError::kDeadline));
  EXPECT_THAT(driver_->Record().nodes[3].error.message, HasSubstr("its last step was reboot"));
}

TEST_F(UpdateDriverTest, ASlowNodeIsNotGivenUpAsLongAsItGetsOn) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  Beat();
  for (int percent = 1; percent <= 5; ++percent) {
    Pass(170s);
    nodes_[3].Report("updating_programs", percent);
    Beat();
    EXPECT_EQ(StageOf(3), NodeStage::kInstalling) << percent;
  }
  Pass(170s);
  nodes_[3].Report("updating_configurations", 0);
  Beat();
  Pass(170s);
  Beat();
  EXPECT_EQ(StageOf(3), NodeStage::kInstalling);
  Pass(10s);
  Beat();
  EXPECT_EQ(StageOf(3), NodeStage::kFailed) << "saying the same again is not getting on";
}

TEST_F(UpdateDriverTest, WhoWasNotToldAfterAllIsNamedAgain) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  ASSERT_THAT(driver_->Step(now_), ElementsAre(3));
  EXPECT_THAT(driver_->Step(now_), IsEmpty());
  driver_->NotTold({3});
  EXPECT_THAT(driver_->Step(now_), ElementsAre(3));
}

TEST_F(UpdateDriverTest, ANodeThatCannotBeToldIsToldAgainUntilTheDeadline) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  nodes_[3].SetReachable(false);
  EXPECT_THAT(Beat(), ElementsAre(3));
  EXPECT_THAT(Beat(), ElementsAre(3));
  Pass(60s);
  EXPECT_THAT(Beat(), ElementsAre(1, 2));
  EXPECT_THAT(driver_->Record().nodes[3].error.description, HasSubstr("could not be told"));
}

TEST_F(UpdateDriverTest, ItIsToldWhyANodeWasNotToldInTime) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  ASSERT_THAT(driver_->Step(now_), ElementsAre(3));
  driver_->StartAnswered(3, {StartOutcome::kLater, 5229}, now_);
  Pass(60s);
  Beat();
  EXPECT_THAT(driver_->Record().nodes[3].error.message, HasSubstr("busy with a patch"));
}

TEST_F(UpdateDriverTest, AFullDiskIsNoSilentNode) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  driver_->NotTold(driver_->Step(now_));
  Pass(60s);
  Beat();
  EXPECT_THAT(driver_->Record().nodes[3].error.message, HasSubstr("cannot save"));
}

TEST_F(UpdateDriverTest, ARefusalFailsWithTheNodesOwnNumber) {
  nodes_[3].Refuse(5225);
  ASSERT_EQ(Begin(), MeshCode::kOk);
  Beat();
  EXPECT_EQ(StageOf(3), NodeStage::kFailed);
  EXPECT_EQ(driver_->Record().nodes[3].error.number, 5225);
  EXPECT_EQ(driver_->Record().nodes[3].error.message, "no patch is staged on it any more");
}

TEST_F(UpdateDriverTest, ANodeThatInstallsAlreadyTookTheOrder) {
  nodes_[3].Refuse(5220);
  ASSERT_EQ(Begin(), MeshCode::kOk);
  Beat();
  EXPECT_EQ(StageOf(3), NodeStage::kInstalling);
}

TEST_F(UpdateDriverTest, ARestartBeforeItsTurnIsNoFailure) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  Beat();
  nodes_[1].Boot(kOldVersion);
  nodes_[3].Boot(kNewVersion);
  EXPECT_THAT(Beat(), ElementsAre(1, 2));
  Beat();
  EXPECT_EQ(StageOf(1), NodeStage::kInstalling);
}

TEST_F(UpdateDriverTest, GoesOnAfterARestartOfTheServiceAtEveryBeat) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  Restart();
  EXPECT_THAT(Beat(), ElementsAre(3));
  Restart();
  EXPECT_THAT(Beat(), IsEmpty());
  nodes_[3].Boot(kNewVersion);
  Restart();
  EXPECT_THAT(Beat(), ElementsAre(1, 2));
  Restart();
  nodes_[1].Boot(kNewVersion);
  Beat();
  Restart();
  nodes_[2].Boot(kNewVersion);
  EXPECT_THAT(Beat(), ElementsAre(0));
  Restart();
  nodes_[0].Boot(kNewVersion);
  Beat();
  EXPECT_EQ(State(), UpdateState::kFinished);
  Restart();
  Beat();
  EXPECT_EQ(State(), UpdateState::kFinished);
  for (const FakeNode& node : nodes_) EXPECT_EQ(node.Starts(), 1);
}

TEST_F(UpdateDriverTest, TheCapsOwnRestartEndsTheUpdateByWhatItRunsThen) {
  UpdateSatellites();
  nodes_[0].Boot(kNewVersion);
  Restart();
  EXPECT_EQ(State(), UpdateState::kRunning);
  Beat();
  EXPECT_EQ(State(), UpdateState::kFinished);
}

TEST_F(UpdateDriverTest, TheCapFallingBackInItsOwnRestartIsAFailure) {
  UpdateSatellites();
  nodes_[0].Boot(kOldVersion);
  Restart();
  Beat();
  EXPECT_EQ(State(), UpdateState::kFailed);
  EXPECT_THAT(ProgressOf(driver_->Record()).err_desc, StartsWith("node 0"));
}

// The service ended after it gave the order, before it noted the answer.
TEST_F(UpdateDriverTest, AnOrderWhoseAnswerWasLostIsGivenAgain) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  ASSERT_THAT(driver_->Step(now_), ElementsAre(3));
  Restart();
  EXPECT_THAT(driver_->Step(now_), IsEmpty()) << "before the node was heard";
  nodes_[3].Refuse(5220);
  EXPECT_THAT(Beat(), ElementsAre(3));
  EXPECT_EQ(StageOf(3), NodeStage::kInstalling);
}

TEST_F(UpdateDriverTest, AnOrderWhoseAnswerWasLostMayBeCarriedOutAlready) {
  ASSERT_EQ(Begin(), MeshCode::kOk);
  ASSERT_THAT(driver_->Step(now_), ElementsAre(3));
  nodes_[3].Boot(kNewVersion);
  Restart();
  EXPECT_THAT(Beat(), ElementsAre(1, 2));
  EXPECT_EQ(StageOf(3), NodeStage::kDone);
  EXPECT_EQ(nodes_[3].Starts(), 0);
}

TEST_F(UpdateDriverTest, ANewUpdateFollowsAFailedOne) {
  nodes_[3].Refuse(5225);
  ASSERT_EQ(Begin(), MeshCode::kOk);
  Beat();
  ASSERT_THAT(Beat(), ElementsAre(1, 2));
  for (const std::uint32_t id : {1U, 2U}) nodes_[id].Boot(kNewVersion);
  Beat();
  nodes_[0].Boot(kNewVersion);
  Beat();
  ASSERT_EQ(State(), UpdateState::kFailed);
  nodes_[3].Refuse(0);
  ASSERT_EQ(Begin(), MeshCode::kOk);
  EXPECT_THAT(Beat(), ElementsAre(3));
  nodes_[3].Boot(kNewVersion);
  Beat();
  EXPECT_EQ(State(), UpdateState::kFinished);
  EXPECT_EQ(ProgressOf(driver_->Record()).error_number, 0);
}

}  // namespace
}  // namespace kalo::meshd
