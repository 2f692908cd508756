#include "services/meshd/node_list.h"

#include <gtest/gtest.h>

#include "services/meshd/json_members.h"

namespace kalo::meshd {
namespace {

constexpr const char* kCap = R"({"id":0,"address":"127.0.0.1","parent":0,"hops":0,"wired":true})";

std::string List(const std::string& more) {
  return std::string("[") + kCap + (more.empty() ? "" : ",") + more + "]";
}

TEST(NodeList, ReadsNodesByAscendingId) {
  const auto nodes =
      ParseNodeList(R"([{"id":3,"address":"fd00::3","parent":1,"hops":2,"wired":false},)"
                    R"({"id":1,"address":"127.0.0.2","parent":0,"hops":1,"wired":true},)" +
                    std::string(kCap) + "]");
  ASSERT_EQ(nodes.size(), 3U);
  EXPECT_EQ(nodes[0].id, 0U);
  EXPECT_EQ(nodes[1].address, "127.0.0.2");
  EXPECT_EQ(nodes[2].parent, 1U);
  EXPECT_EQ(nodes[2].hops, 2U);
  EXPECT_FALSE(nodes[2].wired);
}

class BadNodeList : public ::testing::TestWithParam<std::string> {};

TEST_P(BadNodeList, IsRefusedWhole) {
  EXPECT_THROW(static_cast<void>(ParseNodeList(GetParam())), BadJson) << GetParam();
}

INSTANTIATE_TEST_SUITE_P(
    NodeList, BadNodeList,
    ::testing::Values(
        "", "{}", "[]", "null", "[1]", List("") + "x", std::string(2000, '['), List(kCap),
        List(R"({"id":1,"address":"127.0.0.2","parent":0,"hops":1})"),
        List(R"({"id":1,"address":"127.0.0.2","parent":0,"hops":1,"wired":1})"),
        List(R"({"id":-1,"address":"127.0.0.2","parent":0,"hops":1,"wired":true})"),
        List(R"({"id":"1","address":"127.0.0.2","parent":0,"hops":1,"wired":true})"),
        List(R"({"id":70000,"address":"127.0.0.2","parent":0,"hops":1,"wired":true})"),
        List(R"({"id":1,"address":"host.example","parent":0,"hops":1,"wired":true})"),
        List(R"({"id":1,"address":"","parent":0,"hops":1,"wired":true})"),
        List(R"({"id":1,"address":"127.0.0.2","parent":7,"hops":1,"wired":true})"),
        List(R"({"id":1,"address":"127.0.0.2","parent":0,"hops":0,"wired":true})"),
        List(R"({"id":1,"address":"127.0.0.2","parent":0,"hops":2,"wired":true})"),
        List(R"({"id":1,"address":"127.0.0.2","parent":1,"hops":1,"wired":true})"),
        List(R"({"id":1,"address":"127.0.0.2","parent":0,"hops":1,"wired":true,"x":1})"),
        R"([{"id":0,"address":"127.0.0.1","parent":0,"hops":1,"wired":true}])",
        R"([{"id":1,"address":"127.0.0.1","parent":0,"hops":1,"wired":true}])"));

}  // namespace
}  // namespace kalo::meshd
