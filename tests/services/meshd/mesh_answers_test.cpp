#include "services/meshd/mesh_answers.h"

#include <gtest/gtest.h>

#include "tests/services/meshd/fake_node.h"

namespace kalo::meshd {
namespace {

using namespace std::chrono_literals;

// Nodes 0 and 1 are online, 2 went offline, 3 was not asked yet.
class MeshAnswersTest : public ::testing::Test {
 protected:
  MeshAnswersTest() {
    for (const std::uint32_t id : {0U, 1U, 2U}) registry_.Answered(*FakeNode(id).Info(), now_);
    registry_.Silent(2, now_ + 3s);
  }

  TimePoint now_{};
  NodeRegistry registry_{FourNodes()};
};

TEST_F(MeshAnswersTest, NodeInfosHoldEveryNodeThatEverAnswered) {
  const auto result = NodeInfosOf(registry_);
  ASSERT_EQ(result.nodes.size(), 3U);
  EXPECT_EQ(result.nodes.at(2).full_version, kOldVersion);
  EXPECT_EQ(result.nodes.at(0).unique, "kalo_cap1");
  EXPECT_EQ(result.nodes.at(1).address, "127.0.0.2");
  EXPECT_EQ(result.nodes.at(1).build_num, 76000);
}

TEST_F(MeshAnswersTest, AccessInfosHoldAttachedNodesOnly) {
  const auto result = AccessInfosOf(registry_);
  ASSERT_EQ(result.nodes.size(), 2U);
  EXPECT_EQ(result.nodes.at(1).hops, 1U);
  EXPECT_TRUE(result.nodes.at(1).wired);
}

TEST_F(MeshAnswersTest, SystemStatusFlagsOfflineNodesButNotThoseNeverAsked) {
  const auto status = SystemStatusOf(registry_);
  EXPECT_TRUE(status.syncing);
  ASSERT_EQ(status.nodes.size(), 4U);
  EXPECT_FALSE(status.nodes[1].offline);
  EXPECT_TRUE(status.nodes[2].offline);
  EXPECT_FALSE(status.nodes[3].offline);
}

TEST_F(MeshAnswersTest, DetailsHoldEveryNodeAndTheUpdatesOwnView) {
  UpdateRecord record;
  record.state = UpdateState::kRunning;
  record.nodes.resize(2);
  record.nodes[0].id = 0;
  record.nodes[0].stage = NodeStage::kDone;
  record.nodes[1].id = 1;
  record.nodes[1].stage = NodeStage::kFailed;
  record.nodes[1].error = {5224, "node 1 could not install", "disk full"};
  const MeshDetails details = DetailsOf(registry_, record);
  EXPECT_TRUE(details.update_running);
  ASSERT_EQ(details.nodes.size(), 4U);
  EXPECT_EQ(details.nodes[0].role, "cap");
  EXPECT_EQ(details.nodes[0].step, "finish");
  EXPECT_EQ(details.nodes[0].percent, 100);
  EXPECT_EQ(details.nodes[1].role, "satellite");
  EXPECT_EQ(details.nodes[1].step, "failed");
  EXPECT_EQ(details.nodes[1].error, "node 1 could not install: disk full");
  EXPECT_FALSE(details.nodes[2].online);
  EXPECT_EQ(details.nodes[3].model, "");
  EXPECT_EQ(details.nodes[3].step, "none");
}

}  // namespace
}  // namespace kalo::meshd
