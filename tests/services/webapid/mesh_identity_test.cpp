#include "services/webapid/mesh_identity.h"

#include <gtest/gtest.h>

namespace kalo::webapid {
namespace {

TEST(MeshIdentity, ReadsTheIdFromTheName) {
  EXPECT_EQ(NodeIdOfName("node0.mesh.internal"), 0);
  EXPECT_EQ(NodeIdOfName("node12.mesh.internal"), 12);
}

TEST(MeshIdentity, OneNameForOneNode) {
  for (const char* name :
       {"", "node.mesh.internal", "node00.mesh.internal", "node01.mesh.internal",
        "node-1.mesh.internal", "node+1.mesh.internal", "node1.mesh.internal.", "node1",
        "Node1.mesh.internal", "xnode1.mesh.internal", "node99999.mesh.internal",
        "node99999999999.mesh.internal", "node1 .mesh.internal"}) {
    EXPECT_FALSE(NodeIdOfName(name)) << name;
  }
}

}  // namespace
}  // namespace kalo::webapid
