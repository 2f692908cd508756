#include "services/meshd/node_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "host/core/strict_json.h"
#include "tests/services/meshd/fake_node.h"

namespace kalo::meshd {
namespace {

namespace fs = std::filesystem;

constexpr const char* kFolder = "/var/lib/kalo/node-store-test";
constexpr const char* kFile = "/var/lib/kalo/node-store-test/nodes.json";

std::string Contents() {
  std::ifstream file(kFile);
  return {std::istreambuf_iterator<char>(file), {}};
}

class NodeStoreTest : public ::testing::Test {
 protected:
  NodeStoreTest() {
    fs::remove_all(kFolder);
    fs::create_directories(kFolder);
  }

  void Answer(std::uint32_t id) { registry_.Answered(*FakeNode(id).Info(), {}); }
  static std::vector<NodeReport> Loaded() { return NodeStore(kFolder).Load(); }

  NodeRegistry registry_{FourNodes()};
};

TEST_F(NodeStoreTest, KeepsWhatIdentifiesANode) {
  Answer(1);
  ASSERT_TRUE(NodeStore(kFolder).Save(registry_));
  const std::vector<NodeReport> nodes = Loaded();
  ASSERT_EQ(nodes.size(), 1U);
  EXPECT_EQ(nodes[0].node_id, 1U);
  EXPECT_EQ(nodes[0].name, "node1");
  EXPECT_EQ(nodes[0].unique, "kalo_sat1");
  EXPECT_EQ(nodes[0].version, kOldVersion);
  EXPECT_EQ(nodes[0].build, 76000);
  EXPECT_EQ(nodes[0].boot_id, "");
  EXPECT_EQ(fs::status(kFile).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(NodeStoreTest, WritesOnlyWhatChanged) {
  Answer(1);
  NodeStore store(kFolder);
  ASSERT_TRUE(store.Save(registry_));
  fs::remove(kFile);
  EXPECT_TRUE(store.Save(registry_));
  EXPECT_FALSE(fs::exists(kFile));
  Answer(2);
  EXPECT_TRUE(store.Save(registry_));
  EXPECT_EQ(Loaded().size(), 2U);
}

TEST_F(NodeStoreTest, ADamagedOrHostileFileCountsAsAbsent) {
  const std::string node = R"({"id":1,"name":"a","model":"m","version":"v","build":1,"nano":0})";
  for (const std::string& text : std::vector<std::string>{
           "", "[]", "{}", R"({"nodes":)", R"({"nodes":{}})", R"({"nodes":[1]})",
           R"({"nodes":[{"id":1}]})", R"({"nodes":[)" + node + "," + node + "]}",
           R"({"nodes":[{"id":-1,"name":"a","model":"m","version":"v","build":1,"nano":0}]})",
           R"({"nodes":[{"id":1,"name":7,"model":"m","version":"v","build":1,"nano":0}]})",
           std::string(2UL << 20, ' ') + R"({"nodes":[]})", std::string(100000, '[')}) {
    std::ofstream(kFile, std::ios::trunc) << text;
    NodeStore store(kFolder);
    EXPECT_TRUE(store.Load().empty()) << text.substr(0, 80);
    Answer(1);
    EXPECT_TRUE(store.Save(registry_));
    EXPECT_EQ(Loaded().size(), 1U) << text.substr(0, 80);
  }
}

TEST_F(NodeStoreTest, AFileThatIsNotRegularCountsAsAbsent) {
  ASSERT_EQ(mkfifo(kFile, 0600), 0);
  EXPECT_TRUE(Loaded().empty());
  fs::remove(kFile);
  fs::create_symlink("/etc/passwd", kFile);
  EXPECT_TRUE(Loaded().empty());
}

TEST_F(NodeStoreTest, TextsAreFitForTheBus) {
  std::ofstream(kFile) << R"({"nodes":[{"id":1,"name":"a\u001b[31mb","model":"m","version":")"
                       << std::string(100000, 'v') << R"(","build":1,"nano":0}]})";
  const std::vector<NodeReport> nodes = Loaded();
  ASSERT_EQ(nodes.size(), 1U);
  EXPECT_EQ(nodes[0].name.find('\x1b'), std::string::npos);
  EXPECT_LT(nodes[0].version.size(), 10000U);
}

TEST_F(NodeStoreTest, KeepsUnknownKeysAndDropsNodesThatAreNotListed) {
  std::ofstream(kFile)
      << R"({"colour":"red","nodes":[)"
      << R"({"id":1,"name":"a","model":"m","version":"v","build":1,"nano":0,"room":"attic"},)"
      << R"({"id":9,"name":"b","model":"m","version":"v","build":1,"nano":0}]})";
  NodeStore store(kFolder);
  for (const NodeReport& report : store.Load()) registry_.Remember(report);
  EXPECT_EQ(registry_.Nodes().at(1).report->name, "a");
  Answer(2);
  ASSERT_TRUE(store.Save(registry_));
  const auto root = ParseStrictJson(Contents());
  ASSERT_TRUE(root) << Contents();
  EXPECT_EQ((*root)["colour"], "red");
  ASSERT_EQ((*root)["nodes"].size(), 2U);
  EXPECT_EQ((*root)["nodes"][0]["room"], "attic");
  EXPECT_EQ((*root)["nodes"][1]["id"], 2);
}

TEST_F(NodeStoreTest, UnknownKeysNeverMakeTheFileTooLargeToRead) {
  constexpr std::size_t kAlmostTooLarge = (1UL << 20) - 100;
  std::ofstream(kFile) << R"({"nodes":[],"more":")" << std::string(kAlmostTooLarge, 'x') << "\"}";
  NodeStore store(kFolder);
  (void)store.Load();
  for (const std::uint32_t id : {0U, 1U, 2U, 3U}) Answer(id);
  ASSERT_TRUE(store.Save(registry_));
  EXPECT_EQ(Loaded().size(), 4U);
}

TEST_F(NodeStoreTest, ReportsWhenItCannotSave) {
  NodeStore store(kFolder);
  Answer(1);
  fs::remove_all(kFolder);
  EXPECT_FALSE(store.Save(registry_));
  fs::create_directories(kFolder);
  EXPECT_TRUE(store.Save(registry_));
  EXPECT_EQ(Loaded().size(), 1U);
}

}  // namespace
}  // namespace kalo::meshd
