#include "box/mesh_plan.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

namespace kalo::box {
namespace {

TEST(MeshPlan, FourNodesAreACapAndThreeSatellitesOfTwoModels) {
  const auto nodes = PlanMesh(4);
  ASSERT_EQ(nodes.size(), 4U);
  EXPECT_EQ(ModelsOf(nodes), (std::vector<std::string>{"kalo_m1", "kalo_m2"}));
  EXPECT_EQ(nodes[0].hops, 0);
  EXPECT_EQ(nodes[0].model, "kalo_m1");
  EXPECT_EQ(nodes[3].parent, 2);
  EXPECT_EQ(nodes[3].hops, 2);
  EXPECT_EQ(nodes[3].address, "127.0.0.4");
}

TEST(MeshPlan, EveryNodeHangsOnAnEarlierOneAndHasItsOwnAddressAndName) {
  const auto nodes = PlanMesh(kMaxNodes);
  std::set<std::string> addresses;
  std::set<std::string> names;
  for (const PlannedNode& node : nodes) {
    addresses.insert(node.address);
    names.insert(node.name);
    if (node.id == 0) continue;
    ASSERT_LT(node.parent, node.id);
    EXPECT_EQ(node.hops, nodes[static_cast<std::size_t>(node.parent)].hops + 1);
  }
  EXPECT_EQ(addresses.size(), nodes.size());
  EXPECT_EQ(names.size(), nodes.size());
}

TEST(MeshPlan, SizesOutOfRangeAreRefused) {
  EXPECT_THROW(static_cast<void>(PlanMesh(0)), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(PlanMesh(kMaxNodes + 1)), std::invalid_argument);
}

}  // namespace
}  // namespace kalo::box
