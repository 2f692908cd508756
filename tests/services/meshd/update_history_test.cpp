#include "services/meshd/update_history.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include "host/core/strict_json.h"
#include "tests/support/no_descriptors.h"

namespace kalo::meshd {
namespace {

namespace fs = std::filesystem;

constexpr const char* kFolder = "/var/lib/kalo/history-test";
constexpr const char* kFile = "/var/lib/kalo/history-test/history.json";

UpdateNode Node(std::uint32_t id, NodeStage stage) {
  UpdateNode node;
  node.id = id;
  node.name = "attic";
  node.from_version = "VXM 1.4.0-76000";
  node.wanted_version = "VXM 1.4.0-76010";
  node.stage = stage;
  return node;
}

UpdateRecord Ended(std::int64_t begun, UpdateState state = UpdateState::kFinished) {
  UpdateRecord record;
  record.state = state;
  record.begun = begun;
  record.cause = "owner";
  record.nodes = {Node(0, NodeStage::kDone)};
  return record;
}

Json::Value InFile() {
  std::ifstream file(kFile);
  return ParseStrictJson(std::string(std::istreambuf_iterator<char>(file), {}))
      .value_or(Json::Value());
}

class UpdateHistoryTest : public ::testing::Test {
 protected:
  UpdateHistoryTest() {
    fs::remove_all(kFolder);
    fs::create_directories(kFolder);
  }
};

TEST_F(UpdateHistoryTest, WhatCannotBeReadNowIsNotReplaced) {
  UpdateHistory(kFolder).Note(Ended(1000), 1060);
  std::optional<UpdateHistory> history;
  {
    const test::NoDescriptors none;
    history.emplace(kFolder);
    history->Note(Ended(2000), 2060);
  }
  EXPECT_EQ(InFile().size(), 1U);
  history->Note(Ended(2000), 2060);
  ASSERT_EQ(InFile().size(), 2U);
  EXPECT_EQ(InFile()[0]["begun"].asInt(), 1000);
}

TEST_F(UpdateHistoryTest, TellsWhoWhenAndWhatBecameOfEachNode) {
  UpdateRecord record = Ended(1000, UpdateState::kFailed);
  record.nodes.push_back(Node(1, NodeStage::kFailed));
  record.nodes.back().error = {5224, "node 1 (attic) could not install", "the disk is full"};
  record.nodes.push_back(Node(2, NodeStage::kLeftOut));
  UpdateHistory(kFolder).Note(record, 1060);
  const Json::Value update = InFile()[0];
  EXPECT_EQ(update["begun"].asInt(), 1000);
  EXPECT_EQ(update["ended"].asInt(), 1060);
  EXPECT_EQ(update["cause"].asString(), "owner");
  EXPECT_EQ(update["result"].asString(), "failed");
  ASSERT_EQ(update["nodes"].size(), 3U);
  EXPECT_EQ(update["nodes"][0]["result"].asString(), "done");
  EXPECT_EQ(update["nodes"][0]["from"].asString(), "VXM 1.4.0-76000");
  EXPECT_EQ(update["nodes"][0]["wanted"].asString(), "VXM 1.4.0-76010");
  EXPECT_EQ(update["nodes"][1]["result"].asString(), "failed");
  EXPECT_EQ(update["nodes"][1]["errno"].asInt(), 5224);
  EXPECT_EQ(update["nodes"][1]["error"].asString(),
            "node 1 (attic) could not install: the disk is full");
  EXPECT_EQ(update["nodes"][2]["result"].asString(), "left_out");
}

TEST_F(UpdateHistoryTest, NotesAnUpdateOnceAlsoOverARestart) {
  UpdateHistory history(kFolder);
  history.Note(Ended(1000), 1060);
  history.Note(Ended(1000), 1061);
  UpdateHistory(kFolder).Note(Ended(1000), 1062);
  EXPECT_EQ(InFile().size(), 1U);
  history.Note(Ended(2000), 2001);
  EXPECT_EQ(InFile().size(), 2U);
}

TEST_F(UpdateHistoryTest, NotesNothingThatHasNotEndedOrHasNoBegin) {
  UpdateHistory history(kFolder);
  history.Note(Ended(1000, UpdateState::kRunning), 1001);
  history.Note(Ended(1000, UpdateState::kNone), 1001);
  history.Note(Ended(0), 1001);
  EXPECT_FALSE(fs::exists(kFile));
}

TEST_F(UpdateHistoryTest, KeepsTheLastFifty) {
  UpdateHistory history(kFolder);
  for (int i = 1; i <= 60; ++i) history.Note(Ended(i), i);
  const Json::Value updates = InFile();
  ASSERT_EQ(updates.size(), 50U);
  EXPECT_EQ(updates[0]["begun"].asInt(), 11);
  EXPECT_EQ(updates[49]["begun"].asInt(), 60);
}

TEST_F(UpdateHistoryTest, ADamagedFileBeginsAnew) {
  std::ofstream(kFile) << "[{";
  UpdateHistory(kFolder).Note(Ended(1000), 1060);
  EXPECT_EQ(InFile().size(), 1U);
}

TEST_F(UpdateHistoryTest, WhatCouldNotBeSavedIsSavedLater) {
  UpdateHistory history(kFolder);
  fs::remove_all(kFolder);
  history.Note(Ended(1000), 1060);
  fs::create_directories(kFolder);
  history.Note(Ended(1000), 1070);
  EXPECT_EQ(InFile().size(), 1U);
}

}  // namespace
}  // namespace kalo::meshd
