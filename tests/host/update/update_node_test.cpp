#include "platform/update/update_node.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace KALO::MESH::SDK::Upgrade {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

Client::NodeInfo Info(const std::string& address) {
  Client::NodeInfo info;
  info.unique = "kalo_x1";
  info.address = address;
  info.full_version = "VXM 1.4.0-76000 Update 1";
  info.build_num = 76000;
  info.nano_num = 1;
  return info;
}

std::vector<std::int32_t> Ids(const std::vector<UpdateNode>& nodes) {
  std::vector<std::int32_t> ids;
  ids.reserve(nodes.size());
  for (const UpdateNode& node : nodes) ids.push_back(node.GetNodeID());
  return ids;
}

TEST(UpdateNodeTest, TakesWhatTheNodeSaidOfItself) {
  const auto nodes = UpdateNode::ToUpdateNodes({{3, Info("127.0.0.4")}}, {{3, {}}});
  ASSERT_EQ(nodes.size(), 1U);
  EXPECT_EQ(nodes[0].GetNodeID(), 3);
  EXPECT_EQ(nodes[0].GetAddress(), "127.0.0.4");
  EXPECT_EQ(nodes[0].GetUnique(), "kalo_x1");
  EXPECT_EQ(nodes[0].GetFullVersion(), "VXM 1.4.0-76000 Update 1");
  EXPECT_EQ(nodes[0].GetBuildNum(), 76000);
  EXPECT_EQ(nodes[0].GetNanoNum(), 1);
}

TEST(UpdateNodeTest, OnlyNodesInBothMapsAndTheRouterByAscendingId) {
  const auto nodes =
      UpdateNode::ToUpdateNodes({{7, Info("a")}, {2, Info("b")}, {0, Info("c")}, {5, Info("d")}},
                                {{7, {}}, {2, {}}, {9, {}}});
  EXPECT_THAT(Ids(nodes), ElementsAre(0, 2, 7));
}

TEST(UpdateNodeTest, ARouterThatSaidNothingIsNotThere) {
  EXPECT_THAT(Ids(UpdateNode::ToUpdateNodes({{1, Info("a")}}, {{0, {}}, {1, {}}})), ElementsAre(1));
  EXPECT_THAT(UpdateNode::ToUpdateNodes({}, {}), IsEmpty());
}

TEST(UpdateNodeTest, AnIdThatDoesNotFitIsLeftOut) {
  EXPECT_THAT(Ids(UpdateNode::ToUpdateNodes({{0x7FFFFFFFU, Info("a")}, {0x80000000U, Info("b")}},
                                            {{0x7FFFFFFFU, {}}, {0x80000000U, {}}})),
              ElementsAre(0x7FFFFFFF));
}

}  // namespace
}  // namespace KALO::MESH::SDK::Upgrade
