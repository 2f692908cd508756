#include "services/meshd/update_progress.h"

#include <gtest/gtest.h>

namespace kalo::meshd {
namespace {

UpdateNode Node(std::uint32_t id, NodeStage stage, const std::string& step = "none",
                int percent = 0) {
  UpdateNode node;
  node.id = id;
  node.hops = id == 0 ? 0 : 1;
  node.stage = stage;
  node.step = step;
  node.percent = percent;
  node.wanted_version = "VXM 1.4.0-7601" + std::to_string(id);
  return node;
}

UpdateRecord Running(std::vector<UpdateNode> nodes) {
  UpdateRecord record;
  record.state = UpdateState::kRunning;
  record.nodes = std::move(nodes);
  return record;
}

TEST(UpdateProgress, WithoutAnUpdateThereIsNone) {
  const auto progress = ProgressOf(UpdateRecord{});
  EXPECT_EQ(progress.code, 0);
  EXPECT_EQ(progress.step, "none");
  EXPECT_EQ(progress.percent, 0);
  EXPECT_EQ(progress.total_percentage, 0);
  EXPECT_EQ(progress.version, "");
}

TEST(UpdateProgress, StepsFollowTheFixedOrder) {
  EXPECT_LT(StepRank("none"), StepRank("preparing"));
  EXPECT_LT(StepRank("preparing"), StepRank("waiting_remote_upgrading"));
  EXPECT_LT(StepRank("waiting_remote_upgrading"), StepRank("analying_system"));
  EXPECT_LT(StepRank("start_service"), StepRank("reboot"));
  EXPECT_LT(StepRank("reboot"), StepRank("finish"));
  EXPECT_EQ(StepRank("analysing_system"), -1);
  EXPECT_EQ(StepRank("prepar"), -1);
}

TEST(UpdateProgress, TheShownStepWaitsForSatellitesAndThenFollowsTheCap) {
  UpdateRecord record = Running({Node(0, NodeStage::kWaiting), Node(1, NodeStage::kStarting)});
  RefreshShown(record);
  EXPECT_EQ(record.step, "preparing");
  record.nodes[1] = Node(1, NodeStage::kInstalling, "updating_programs", 50);
  RefreshShown(record);
  EXPECT_EQ(record.step, "waiting_remote_upgrading");
  record.nodes[1].stage = NodeStage::kDone;
  record.nodes[0] = Node(0, NodeStage::kInstalling, "preparing");
  RefreshShown(record);
  EXPECT_EQ(record.step, "waiting_remote_upgrading") << "never steps back";
  record.nodes[0].step = "updating_programs";
  RefreshShown(record);
  EXPECT_EQ(record.step, "updating_programs");
}

TEST(UpdateProgress, TheTotalWeighsTheRestartToo) {
  UpdateRecord record = Running({Node(1, NodeStage::kInstalling, "start_service", 100)});
  RefreshShown(record);
  EXPECT_LT(record.total, 75);
  record.nodes[0].step = "reboot";
  record.nodes[0].percent = 100;
  RefreshShown(record);
  EXPECT_LT(record.total, 100);
}

TEST(UpdateProgress, TheTotalRisesThroughEveryStepAndNeverFalls) {
  UpdateRecord record = Running({Node(1, NodeStage::kInstalling)});
  int last = 0;
  for (const char* step : {"preparing", "analying_system", "updating_programs",
                           "updating_configurations", "start_service", "reboot"}) {
    for (const int percent : {0, 50, 100}) {
      record.nodes[0].step = step;
      record.nodes[0].percent = percent;
      RefreshShown(record);
      EXPECT_GE(record.total, last) << step;
      last = record.total;
    }
  }
  EXPECT_GT(last, 90);
  record.nodes[0].step = "preparing";
  RefreshShown(record);
  EXPECT_EQ(record.total, last);
}

TEST(UpdateProgress, HundredOnlyWhenFinished) {
  UpdateRecord record = Running({Node(1, NodeStage::kDone), Node(2, NodeStage::kDone)});
  RefreshShown(record);
  EXPECT_EQ(record.total, 99);
  record.state = UpdateState::kFinished;
  RefreshShown(record);
  EXPECT_EQ(record.total, 100);
  EXPECT_EQ(record.step, "finish");
}

TEST(UpdateProgress, AFailedUpdateKeepsItsTotal) {
  UpdateRecord record = Running({Node(1, NodeStage::kFailed)});
  record.state = UpdateState::kFailed;
  RefreshShown(record);
  EXPECT_EQ(record.step, "failed");
  EXPECT_EQ(record.total, 99);
}

TEST(UpdateProgress, PercentIsTheMeanOfTheNodesAtWork) {
  const auto progress = ProgressOf(
      Running({Node(0, NodeStage::kWaiting), Node(1, NodeStage::kInstalling, "preparing", 20),
               Node(2, NodeStage::kInstalling, "preparing", 60),
               Node(3, NodeStage::kDone, "reboot", 100)}));
  EXPECT_EQ(progress.percent, 40);
}

TEST(UpdateProgress, TheVersionIsTheCapsElseTheFirstNodes) {
  EXPECT_EQ(ProgressOf(Running({Node(1, NodeStage::kDone), Node(0, NodeStage::kDone)})).version,
            "VXM 1.4.0-76010");
  EXPECT_EQ(ProgressOf(Running({Node(2, NodeStage::kDone), Node(3, NodeStage::kDone)})).version,
            "VXM 1.4.0-76012");
}

TEST(UpdateProgress, EveryFailedNodeIsNamed) {
  UpdateRecord record = Running({Node(1, NodeStage::kFailed), Node(2, NodeStage::kFailed)});
  record.nodes[0].error = {5224, "node 1 could not install", "disk full"};
  record.nodes[1].error = {5241, "node 2 fell back", "it runs the old version"};
  const auto progress = ProgressOf(record);
  EXPECT_EQ(progress.error_number, 5224);
  EXPECT_EQ(progress.err_desc, "node 1 could not install; node 2 fell back");
  EXPECT_EQ(progress.err_msg, "disk full; it runs the old version");
}

}  // namespace
}  // namespace kalo::meshd
