#include "services/meshd/update_record.h"

#include <json/writer.h>

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

#include "services/meshd/json_members.h"

namespace kalo::meshd {
namespace {

constexpr int kFormat = 1;
constexpr std::uint32_t kAny = std::numeric_limits<std::uint32_t>::max();

template <typename Value>
struct Word {
  Value value;
  std::string_view word;
};
template <typename Value>
Word(Value, const char*) -> Word<Value>;

constexpr std::array kStates = {
    Word{UpdateState::kNone, "none"},
    Word{UpdateState::kRunning, "running"},
    Word{UpdateState::kFinished, "finished"},
    Word{UpdateState::kFailed, "failed"},
};

constexpr std::array kStages = {
    Word{NodeStage::kWaiting, "waiting"},       Word{NodeStage::kStarting, "starting"},
    Word{NodeStage::kInstalling, "installing"}, Word{NodeStage::kDone, "done"},
    Word{NodeStage::kFailed, "failed"},         Word{NodeStage::kLeftOut, "left_out"},
};

template <typename Table, typename Value>
std::string WordOf(const Table& table, Value value) {
  const auto* row = std::find_if(table.begin(), table.end(),
                                 [value](const auto& entry) { return entry.value == value; });
  return std::string(row->word);
}

template <typename Table>
auto ValueOf(const Table& table, const Json::Value& object, const char* key) {
  const std::string word = TextOf(object, key);
  const auto* row = std::find_if(table.begin(), table.end(),
                                 [&word](const auto& entry) { return entry.word == word; });
  if (row == table.end()) throw BadJson("\"" + word + "\" is no word for \"" + key + "\"");
  return row->value;
}

// What an older service did not write: an update may have begun under it and restarted the router
// into this one.
std::string OptionalText(const Json::Value& object, const char* key) {
  return object.isMember(key) ? TextOf(object, key) : "";
}

Json::Value ToValue(const UpdateNode& node) {
  Json::Value value(Json::objectValue);
  value["id"] = node.id;
  value["name"] = node.name;
  value["hops"] = node.hops;
  value["from_version"] = node.from_version;
  value["wanted_version"] = node.wanted_version;
  value["boot_id"] = node.boot_id;
  value["stage"] = WordOf(kStages, node.stage);
  value["step"] = node.step;
  value["percent"] = node.percent;
  value["old_failure"] = node.old_failure;
  value["errno"] = node.error.number;
  value["err_desc"] = node.error.description;
  value["err_msg"] = node.error.message;
  return value;
}

UpdateNode NodeFromValue(const Json::Value& value) {
  UpdateNode node;
  node.id = NumberOf(value, "id", kAny);
  node.name = TextOf(value, "name");
  node.hops = NumberOf(value, "hops", kAny);
  node.from_version = OptionalText(value, "from_version");
  node.wanted_version = TextOf(value, "wanted_version");
  node.boot_id = TextOf(value, "boot_id");
  node.stage = ValueOf(kStages, value, "stage");
  node.step = TextOf(value, "step");
  node.percent = IntegerOf(value, "percent");
  node.old_failure = BooleanOf(value, "old_failure");
  node.error.number = IntegerOf(value, "errno");
  node.error.description = TextOf(value, "err_desc");
  node.error.message = TextOf(value, "err_msg");
  return node;
}

}  // namespace

std::string ToJson(const UpdateRecord& record) {
  Json::Value root(Json::objectValue);
  root["format"] = kFormat;
  root["state"] = WordOf(kStates, record.state);
  root["step"] = record.step;
  root["total"] = record.total;
  root["begun"] = Json::Int64{record.begun};
  root["cause"] = record.cause;
  root["nodes"] = Json::Value(Json::arrayValue);
  for (const UpdateNode& node : record.nodes) root["nodes"].append(ToValue(node));
  return Json::writeString(Json::StreamWriterBuilder(), root) + "\n";
}

UpdateRecord UpdateRecordFromJson(const std::string& text) {
  const Json::Value root = ParseDocument(text);
  if (IntegerOf(root, "format") != kFormat) throw BadJson("unknown format");
  UpdateRecord record;
  record.state = ValueOf(kStates, root, "state");
  record.step = TextOf(root, "step");
  record.total = static_cast<std::int32_t>(NumberOf(root, "total", 100));
  if (root["begun"].isInt64()) record.begun = root["begun"].asInt64();
  record.cause = OptionalText(root, "cause");
  const Json::Value& nodes = MemberOf(root, "nodes");
  if (!nodes.isArray()) throw BadJson("\"nodes\" is no array");
  for (const Json::Value& node : nodes) record.nodes.push_back(NodeFromValue(node));
  return record;
}

}  // namespace kalo::meshd
