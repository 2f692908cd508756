#include "services/meshd/update_history.h"

#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "host/core/strict_json.h"

namespace kalo::meshd {
namespace {

constexpr std::size_t kFileLimit = std::size_t{1} << 20;
constexpr mode_t kMode = 0600;
constexpr Json::ArrayIndex kMost = 50;

const char* ResultOf(const UpdateNode& node) {
  if (node.stage == NodeStage::kDone) return "done";
  return node.stage == NodeStage::kLeftOut ? "left_out" : "failed";
}

Json::Value ToValue(const UpdateNode& node) {
  Json::Value value(Json::objectValue);
  value["id"] = node.id;
  value["name"] = node.name;
  value["from"] = node.from_version;
  value["wanted"] = node.wanted_version;
  value["result"] = ResultOf(node);
  value["error"] = node.error.number == 0 ? "" : node.error.description + ": " + node.error.message;
  value["errno"] = node.error.number;
  return value;
}

Json::Value ToValue(const UpdateRecord& record, std::int64_t now) {
  Json::Value value(Json::objectValue);
  value["begun"] = Json::Int64{record.begun};
  value["ended"] = Json::Int64{now};
  value["cause"] = record.cause;
  value["result"] = record.state == UpdateState::kFinished ? "finished" : "failed";
  value["nodes"] = Json::Value(Json::arrayValue);
  for (const UpdateNode& node : record.nodes) value["nodes"].append(ToValue(node));
  return value;
}

}  // namespace

UpdateHistory::UpdateHistory(const std::string& folder) : path_(folder + "/history.json") {
  loaded_ = Load();
}

bool UpdateHistory::Load() {
  const std::optional<std::string> text = ReadFile(path_, kFileLimit);
  if (!text && !IsNothingThere(errno)) {
    if (!failing_) Log(LOG_ERR, "cannot read %s: %s", path_.c_str(), std::strerror(errno));
    failing_ = true;
    return false;
  }
  if (!text) return true;
  std::optional<Json::Value> updates = ParseStrictJson(*text);
  if (updates && updates->isArray()) {
    updates_ = std::move(*updates);
  } else {
    Log(LOG_ERR, "%s is damaged; the history begins anew", path_.c_str());
  }
  return true;
}

void UpdateHistory::Note(const UpdateRecord& record, std::int64_t now) {
  const bool ended = record.state == UpdateState::kFinished || record.state == UpdateState::kFailed;
  // An update that began under a service without a history has no time.
  if (!ended || record.begun == 0) return;
  if (!loaded_) loaded_ = Load();
  if (!loaded_) return;
  const Json::Value newest = updates_.empty() ? Json::Value() : updates_[updates_.size() - 1];
  if (newest.isObject() && newest["begun"] == Json::Value(Json::Int64{record.begun})) return;
  Json::Value longer = updates_;
  longer.append(ToValue(record, now));
  Json::Value removed;
  while (longer.size() > kMost) longer.removeIndex(0, &removed);
  if (WriteFileAtomic(path_, WriteJson(longer) + "\n", kMode)) {
    updates_ = std::move(longer);
    failing_ = false;
  } else {
    if (!failing_) Log(LOG_ERR, "cannot save %s: %s", path_.c_str(), std::strerror(errno));
    failing_ = true;
  }
}

}  // namespace kalo::meshd
