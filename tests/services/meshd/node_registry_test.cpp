#include "services/meshd/node_registry.h"

#include <gtest/gtest.h>

#include "tests/services/meshd/fake_node.h"

namespace kalo::meshd {
namespace {

using namespace std::chrono_literals;

class NodeRegistryTest : public ::testing::Test {
 protected:
  NodeChange Answer(std::uint32_t id) { return registry_.Answered(*FakeNode(id).Info(), now_); }
  bool Online(std::uint32_t id) const { return registry_.Nodes().at(id).online; }

  TimePoint now_{};
  NodeRegistry registry_{FourNodes()};
};

TEST_F(NodeRegistryTest, SyncsUntilEachNodeWasAskedOnce) {
  EXPECT_TRUE(registry_.Syncing());
  for (const std::uint32_t id : {0U, 1U, 2U}) Answer(id);
  EXPECT_TRUE(registry_.Syncing());
  registry_.Silent(3, now_);
  EXPECT_FALSE(registry_.Syncing());
  EXPECT_FALSE(Online(3));
}

TEST_F(NodeRegistryTest, ThreeSilencesInARowMakeANodeOffline) {
  EXPECT_EQ(Answer(1), NodeChange::kCameOnline);
  EXPECT_EQ(registry_.Silent(1, now_), NodeChange::kNone);
  EXPECT_EQ(registry_.Silent(1, now_), NodeChange::kNone);
  EXPECT_EQ(Answer(1), NodeChange::kNone);
  EXPECT_EQ(registry_.Silent(1, now_), NodeChange::kNone);
  EXPECT_EQ(registry_.Silent(1, now_), NodeChange::kNone);
  EXPECT_TRUE(Online(1));
  EXPECT_EQ(registry_.Silent(1, now_), NodeChange::kWentOffline);
  EXPECT_FALSE(Online(1));
  EXPECT_EQ(registry_.Silent(1, now_), NodeChange::kNone);
}

TEST_F(NodeRegistryTest, OneSilenceIsEnoughWhenTheLastAnswerIsOld) {
  Answer(1);
  now_ += 3s;
  EXPECT_EQ(registry_.Silent(1, now_), NodeChange::kWentOffline);
}

TEST_F(NodeRegistryTest, AnOfflineNodeKeepsWhatItLastSaid) {
  Answer(1);
  now_ += 3s;
  registry_.Silent(1, now_);
  EXPECT_EQ(registry_.Nodes().at(1).report->version, kOldVersion);
  EXPECT_EQ(Answer(1), NodeChange::kCameOnline);
}

TEST_F(NodeRegistryTest, SeesARestart) {
  FakeNode node(1);
  registry_.Answered(*node.Info(), now_);
  node.Boot(kOldVersion);
  EXPECT_EQ(registry_.Answered(*node.Info(), now_), NodeChange::kRestarted);
}

TEST_F(NodeRegistryTest, ANodeThatWasKnownBeforeTheServiceStartedCameOnline) {
  NodeReport known = *FakeNode(1).Info();
  known.boot_id.clear();
  registry_.Remember(known);
  EXPECT_TRUE(registry_.Syncing());
  EXPECT_FALSE(Online(1));
  EXPECT_EQ(registry_.Nodes().at(1).report->name, "node1");
  EXPECT_EQ(Answer(1), NodeChange::kCameOnline);
}

TEST_F(NodeRegistryTest, ANodeThatIsNotInTheMeshIsNotRemembered) {
  registry_.Remember(*FakeNode(9).Info());
  EXPECT_FALSE(registry_.Nodes().contains(9));
}

}  // namespace
}  // namespace kalo::meshd
