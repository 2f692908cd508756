#include "services/meshd/update_record.h"

#include <gtest/gtest.h>

#include "host/core/strict_json.h"
#include "services/meshd/json_members.h"

namespace kalo::meshd {
namespace {

UpdateRecord Full() {
  UpdateRecord record;
  record.state = UpdateState::kRunning;
  record.step = "waiting_remote_upgrading";
  record.total = 42;
  record.begun = 1763740000;
  record.cause = "automatic";
  for (const NodeStage stage : {NodeStage::kWaiting, NodeStage::kStarting, NodeStage::kInstalling,
                                NodeStage::kDone, NodeStage::kFailed, NodeStage::kLeftOut}) {
    UpdateNode node;
    node.id = static_cast<std::uint32_t>(record.nodes.size());
    node.name = "küche \"1\"";
    node.hops = 2;
    node.from_version = "VXM 1.4.0-76000";
    node.wanted_version = "VXM 1.4.0-76010 Update 3";
    node.boot_id = "abc";
    node.stage = stage;
    node.step = "reboot";
    node.percent = 7;
    node.old_failure = true;
    node.error = {5224, "what", "why"};
    record.nodes.push_back(node);
  }
  return record;
}

TEST(UpdateRecord, ComesBackWholeInEveryStageAndState) {
  for (const UpdateState state :
       {UpdateState::kNone, UpdateState::kRunning, UpdateState::kFinished, UpdateState::kFailed}) {
    UpdateRecord record = Full();
    record.state = state;
    const UpdateRecord back = UpdateRecordFromJson(ToJson(record));
    EXPECT_EQ(back.state, state);
    ASSERT_EQ(back.nodes.size(), record.nodes.size());
    EXPECT_EQ(back.nodes[2].stage, NodeStage::kInstalling);
    EXPECT_EQ(back.nodes[2].wanted_version, record.nodes[2].wanted_version);
    EXPECT_TRUE(back.nodes[2].old_failure);
    EXPECT_EQ(ToJson(back), ToJson(record));
  }
}

// The update that brings this service in was begun by the one before it.
TEST(UpdateRecord, OneOfAServiceWithoutAHistoryIsTakenOver) {
  Json::Value old = ParseDocument(ToJson(Full()));
  old.removeMember("begun");
  old.removeMember("cause");
  for (Json::Value& node : old["nodes"]) node.removeMember("from_version");
  const UpdateRecord record = UpdateRecordFromJson(WriteJson(old));
  EXPECT_EQ(record.state, UpdateState::kRunning);
  EXPECT_EQ(record.begun, 0);
  EXPECT_EQ(record.cause, "");
  EXPECT_EQ(record.nodes.at(2).from_version, "");
}

TEST(UpdateRecord, EveryPrefixOfTheTextIsRefused) {
  const std::string text = ToJson(Full());
  for (std::size_t size = 0; size + 2 < text.size(); ++size) {
    EXPECT_THROW(static_cast<void>(UpdateRecordFromJson(text.substr(0, size))), BadJson);
  }
}

TEST(UpdateRecord, UnknownWordsAndFormatsAreRefused) {
  std::string text = ToJson(Full());
  text.replace(text.find("\"running\""), 9, "\"walking\"");
  EXPECT_THROW(static_cast<void>(UpdateRecordFromJson(text)), BadJson);
  EXPECT_THROW(static_cast<void>(UpdateRecordFromJson(R"({"format":2})")), BadJson);
}

}  // namespace
}  // namespace kalo::meshd
