#include "services/meshd/update_driver.h"

#include <syslog.h>

#include <algorithm>
#include <utility>

#include "host/core/log.h"
#include "services/meshd/update_failure.h"
#include "services/meshd/update_progress.h"
#include "services/node/error_codes.h"

namespace kalo::meshd {
namespace {

using mesh::MeshCode;

// Not at once: each word of a node is a moment in which it could be told.
constexpr std::chrono::seconds kPauseBeforeAgain{1};

bool IsWorking(const UpdateNode& node) {
  return node.stage == NodeStage::kStarting || node.stage == NodeStage::kInstalling;
}

bool IsWaiting(const UpdateNode& node) {
  return node.stage == NodeStage::kWaiting;
}

UpdateNode PartOf(const KnownNode& known) {
  UpdateNode node;
  node.id = known.place.id;
  node.name = known.report->name;
  node.hops = known.place.hops;
  node.from_version = known.report->version;
  node.wanted_version = known.report->staged_version;
  node.boot_id = known.report->boot_id;
  node.old_failure = known.report->install.step == "failed";
  if (!known.online) {
    node.stage = NodeStage::kLeftOut;
    node.error = WasOffline(node);
  }
  return node;
}

void Fail(UpdateNode& node, NodeError error) {
  node.stage = NodeStage::kFailed;
  node.error = std::move(error);
  Log(LOG_ERR, "update: %s: %s", node.error.description.c_str(), node.error.message.c_str());
}

void EndWhenAllEnded(UpdateRecord& record) {
  const auto& nodes = record.nodes;
  if (std::any_of(nodes.begin(), nodes.end(),
                  [](const UpdateNode& node) { return IsWaiting(node) || IsWorking(node); })) {
    return;
  }
  const bool failed = std::any_of(nodes.begin(), nodes.end(), [](const UpdateNode& node) {
    return node.stage == NodeStage::kFailed;
  });
  record.state = failed ? UpdateState::kFailed : UpdateState::kFinished;
  Log(failed ? LOG_ERR : LOG_NOTICE, "update: %s", failed ? "failed" : "finished");
}

}  // namespace

UpdateDriver::UpdateDriver(UpdateRecord record, UpdateTiming timing, TimePoint now)
    : record_(std::move(record)), timing_(timing) {
  for (const UpdateNode& node : record_.nodes) waits_[node.id].since = now;
}

MeshCode UpdateDriver::Begin(const NodeRegistry& registry, const UpdateOrigin& origin) {
  if (Running()) return MeshCode::kUpdateRunning;
  UpdateRecord record;
  record.state = UpdateState::kRunning;
  record.begun = origin.begun;
  record.cause = origin.cause;
  for (const auto& [id, known] : registry.Nodes()) {
    if (!known.report || known.report->staged_version.empty()) continue;
    record.nodes.push_back(PartOf(known));
  }
  if (std::none_of(record.nodes.begin(), record.nodes.end(), IsWaiting)) {
    return MeshCode::kNothingStaged;
  }
  RefreshShown(record);
  record_ = std::move(record);
  waits_.clear();
  for (const UpdateNode& node : record_.nodes) waits_[node.id].seen = true;
  return MeshCode::kOk;
}

UpdateNode* UpdateDriver::Find(std::uint32_t id) {
  const auto node = std::find_if(record_.nodes.begin(), record_.nodes.end(),
                                 [id](const UpdateNode& entry) { return entry.id == id; });
  return node == record_.nodes.end() ? nullptr : &*node;
}

void UpdateDriver::Enter(UpdateNode& node, NodeStage stage, TimePoint now) {
  node.stage = stage;
  waits_[node.id].since = now;
}

void UpdateDriver::Observed(const NodeReport& report, TimePoint now) {
  UpdateNode* node = Running() ? Find(report.node_id) : nullptr;
  if (node == nullptr) return;
  waits_[node->id].seen = true;
  if (node->stage == NodeStage::kWaiting || node->stage == NodeStage::kStarting) {
    ObservedWaiting(*node, report);
  } else if (node->stage == NodeStage::kInstalling) {
    ObservedInstalling(*node, report, now);
  }
  RefreshShown(record_);
}

// A restart before the order was taken is nobody's failure, unless the service was restarted
// between giving the order and noting the answer: then the node may be through already.
void UpdateDriver::ObservedWaiting(UpdateNode& node, const NodeReport& report) {
  if (node.stage == NodeStage::kStarting && report.boot_id != node.boot_id &&
      report.version == node.wanted_version) {
    node.stage = NodeStage::kDone;
    return;
  }
  node.boot_id = report.boot_id;
  node.old_failure = report.install.step == "failed";
  if (!report.staged_version.empty()) node.wanted_version = report.staged_version;
}

// The proof of success is the version read back in a new boot, not that the node answers again.
void UpdateDriver::ObservedInstalling(UpdateNode& node, const NodeReport& report, TimePoint now) {
  const InstallReport& install = report.install;
  if (report.boot_id != node.boot_id) {
    if (report.version == node.wanted_version) {
      node.stage = NodeStage::kDone;
      Log(LOG_NOTICE, "update: node %u runs %s", node.id, report.version.c_str());
    } else {
      Fail(node, FellBack(node, report.version));
    }
    return;
  }
  if (install.step == "failed") {
    const bool old = node.old_failure && now - waits_[node.id].since < timing_.old_failure;
    if (!old) Fail(node, InstallFailed(node, install));
    return;
  }
  node.old_failure = false;
  // "finish" in the old boot tells of an earlier installation.
  if (StepRank(install.step) < 0 || install.step == "finish") return;
  // A slow node is not given up as long as it gets on.
  if (std::pair(StepRank(install.step), install.percent) >
      std::pair(StepRank(node.step), node.percent)) {
    waits_[node.id].since = now;
  }
  node.step = install.step;
  node.percent = install.percent;
}

void UpdateDriver::StartAnswered(std::uint32_t id, const StartAnswer& answer, TimePoint now) {
  UpdateNode* node = Running() ? Find(id) : nullptr;
  if (node == nullptr) return;
  waits_[id].called = false;
  waits_[id].again = now + kPauseBeforeAgain;
  waits_[id].cause =
      answer.error_number == node::error::kBusy ? LateCause::kBusy : LateCause::kSilent;
  if (node->stage != NodeStage::kStarting) return;
  const bool at_it =
      answer.outcome == StartOutcome::kRefused && answer.error_number == node::error::kInstalling;
  if (answer.outcome == StartOutcome::kAccepted || at_it) {
    Enter(*node, NodeStage::kInstalling, now);
    node->step = "preparing";
    node->percent = 0;
    Log(LOG_NOTICE, "update: node %u installs %s", id, node->wanted_version.c_str());
  } else if (answer.outcome == StartOutcome::kRefused) {
    Fail(*node, StartRefused(*node, answer.error_number));
  }
  RefreshShown(record_);
}

void UpdateDriver::NotTold(const std::vector<std::uint32_t>& ids) {
  for (const std::uint32_t id : ids) {
    waits_[id].called = false;
    waits_[id].cause = LateCause::kNotSaved;
  }
}

void UpdateDriver::EndLateStages(TimePoint now) {
  for (UpdateNode& node : record_.nodes) {
    const auto waited = now - waits_[node.id].since;
    if (node.stage == NodeStage::kStarting && waited >= timing_.start) {
      Fail(node, NotReached(node, waits_[node.id].cause));
    } else if (node.stage == NodeStage::kInstalling && waited >= timing_.install) {
      Fail(node, TookTooLong(node));
    }
  }
}

// The CAP has no hops: as the nearest of all it comes last.
void UpdateDriver::GiveNextTurn(TimePoint now) {
  auto& nodes = record_.nodes;
  if (std::any_of(nodes.begin(), nodes.end(), IsWorking)) return;
  std::uint32_t farthest = 0;
  for (const UpdateNode& node : nodes) {
    if (IsWaiting(node)) farthest = std::max(farthest, node.hops);
  }
  for (UpdateNode& node : nodes) {
    if (IsWaiting(node) && node.hops == farthest) Enter(node, NodeStage::kStarting, now);
  }
}

// After a restart the node is heard first: it may be through already.
bool UpdateDriver::IsToBeTold(const UpdateNode& node, TimePoint now) {
  const Wait& wait = waits_[node.id];
  return node.stage == NodeStage::kStarting && !wait.called && wait.seen && now >= wait.again;
}

bool UpdateDriver::IsStepDueAfter(std::uint32_t id, TimePoint now) {
  const UpdateNode* node = Running() ? Find(id) : nullptr;
  return node != nullptr && (node->hops == 0 || IsToBeTold(*node, now) ||
                             std::none_of(record_.nodes.begin(), record_.nodes.end(), IsWorking));
}

std::vector<std::uint32_t> UpdateDriver::Step(TimePoint now) {
  std::vector<std::uint32_t> starts;
  if (!Running()) return starts;
  EndLateStages(now);
  GiveNextTurn(now);
  EndWhenAllEnded(record_);
  RefreshShown(record_);
  for (const UpdateNode& node : record_.nodes) {
    if (!IsToBeTold(node, now)) continue;
    waits_[node.id].called = true;
    starts.push_back(node.id);
  }
  return starts;
}

}  // namespace kalo::meshd
