#include "tests/services/webapid/server_fixture.h"

namespace kalo::test {
namespace {

class Rights : public ServerTest {};

TEST_F(Rights, AUserWithoutTheGroupMayNot) {
  HttpClient guest = SignedIn(kGuest);
  const HttpAnswer answer = Call(guest, "echo");
  EXPECT_EQ(answer.status, 403);
  EXPECT_EQ(answer.Code(), 7006);
}

TEST_F(Rights, WhatNobodyIsAllowedNobodyMay) {
  HttpClient admin = SignedIn();
  EXPECT_EQ(Call(admin, "nobody").Code(), 7006);
  EXPECT_EQ(Call(admin, "node_0").Code(), 7006);
  EXPECT_EQ(Call(admin, "nodes").Code(), 7006);
}

TEST_F(Rights, ARowWithoutADescriptionCannotBeCalled) {
  HttpClient admin = SignedIn();
  const HttpAnswer answer = Call(admin, "undescribed");
  EXPECT_EQ(answer.status, 404);
  EXPECT_EQ(answer.Code(), 7002);
}

TEST_F(Rights, UnknownRowsAndPathsAreNotFound) {
  HttpClient admin = SignedIn();
  for (const char* row : {"KALO.Test/1/nothing", "KALO.Test/2/echo", "KALO.Test/01/echo",
                          "KALO.Test/1/echo/", "KALO.Test/1", "", "KALO.Test/-1/echo"}) {
    EXPECT_EQ(admin.Post(row).Code(), 7002) << row;
    EXPECT_EQ(admin.Post(row).status, 404) << row;
  }
  EXPECT_EQ(admin.Get("/webapi/KALO.Test/1/echo").Code(), 7002);
}

TEST_F(Rights, ADescribedRowThatNoModuleHasIsUnknown) {
  HttpClient admin = SignedIn();
  EXPECT_EQ(Call(admin, "absent").Code(), 7002);
  EXPECT_TRUE(log_.WaitFor("KALO.Test 1 absent is described but no module has it"));
}

TEST_F(Rights, NodesMayWhatIsTheirs) {
  HttpClient node0 = Node(MeshAuthority(), "node0.mesh.internal");
  HttpClient node3 = Node(MeshAuthority(), "node3.mesh.internal");
  EXPECT_EQ(Call(node0, "node_0").Code(), 0);
  EXPECT_EQ(Call(node0, "nodes").Code(), 0);
  EXPECT_EQ(Call(node3, "nodes").Code(), 0);
  EXPECT_EQ(Call(node3, "node_0").Code(), 7006);
  EXPECT_EQ(Call(node0, "echo").Code(), 7006);
  EXPECT_EQ(node0.Post("KALO.Core.Auth/1/login").Code(), 7002);
}

TEST_F(Rights, TheMeshPortRefusesWhoIsNoNode) {
  HttpClient nobody("node0.mesh.internal", 8443, "/etc/kalo/mesh/ca.crt");
  EXPECT_EQ(Call(nobody, "nodes").Code(), 7006);
  EXPECT_EQ(Call(nobody, "nodes").status, 403);
  HttpClient router = Node(MeshAuthority(), "router.test");
  EXPECT_EQ(Call(router, "nodes").Code(), 7006);
  HttpClient odd = Node(MeshAuthority(), "node00.mesh.internal");
  EXPECT_EQ(Call(odd, "nodes").Code(), 7006);
}

TEST_F(Rights, TheMeshPortRefusesAnotherAuthoritysNode) {
  const TestAuthority foreign;
  HttpClient node = Node(foreign, "node0.mesh.internal");
  const HttpAnswer answer = Call(node, "nodes");
  EXPECT_NE(answer.status, 200);
  EXPECT_NE(answer.Code(), 0);
}

TEST_F(Rights, ASessionIsNothingOnTheMeshPort) {
  const HttpClient admin = SignedIn();
  HttpClient node("node0.mesh.internal", 8443, "/etc/kalo/mesh/ca.crt");
  node.SetSession(admin.cookie, admin.token);
  EXPECT_EQ(Call(node, "echo").Code(), 7006);
}

}  // namespace
}  // namespace kalo::test
