#include "services/meshd/mesh_core.h"

#include <syslog.h>

#include <ctime>
#include <utility>

#include "host/core/log.h"
#include "host/update/download/recovery.h"
#include "platform/core/process.h"
#include "platform/paths.h"
#include "platform/update/update_util.h"

namespace kalo::meshd {
namespace {

using mesh::MeshCode;

std::int64_t Seconds() {
  return static_cast<std::int64_t>(std::time(nullptr));
}

// Who asks for an update says nothing of himself; what runs meanwhile does.
const char* CauseNow() {
  if (KLIBCReadPidFile(KALO::paths::kEqualUpdatePid) > 0) return "equal";
  return KALO::MESH::SDK::Upgrade::UpdateUtil::IsAutoUpdating() ? "automatic" : "owner";
}

void LogChange(std::uint32_t id, NodeChange change) {
  switch (change) {
    case NodeChange::kNone:
      break;
    case NodeChange::kCameOnline:
      Log(LOG_NOTICE, "node %u is online", id);
      break;
    case NodeChange::kWentOffline:
      Log(LOG_WARNING, "node %u is offline", id);
      break;
    case NodeChange::kRestarted:
      Log(LOG_NOTICE, "node %u restarted", id);
      break;
  }
}

}  // namespace

MeshCore::MeshCore(const std::vector<MeshNode>& nodes, NodeCommands& commands, UpdateStore& store,
                   UpdateHistory& history, NodeStore& node_store, UpdateTiming timing,
                   TimePoint now)
    : commands_(commands),
      store_(store),
      history_(history),
      node_store_(node_store),
      registry_(nodes),
      driver_(store.Load(), timing, now) {
  for (const NodeReport& node : node_store_.Load()) registry_.Remember(node);
  if (driver_.Running()) Log(LOG_NOTICE, "update: goes on after a restart of the service");
}

void MeshCore::Reported(std::uint32_t id, std::uint64_t round,
                        const std::optional<NodeReport>& report, TimePoint now) {
  const std::optional<NodeReport>& known = registry_.Nodes().at(id).report;
  if (report && !(known && known->HasIdentityOf(*report))) are_nodes_saved_ = false;
  LogChange(id, report ? registry_.Answered(*report, now) : registry_.Silent(id, now));
  if (report) driver_.Observed(*report, now);
  if (pending_ && round >= pending_->round) pending_->missing.erase(id);
  // A tick goes over all nodes, and many nodes say something every second: what each one says is
  // noted by the next tick, unless something waits for it.
  const bool all_answered = pending_ && pending_->missing.empty();
  if (all_answered || driver_.IsStepDueAfter(id, now)) Tick(now);
}

void MeshCore::StartAnswered(std::uint32_t id, const StartAnswer& answer, TimePoint now) {
  driver_.StartAnswered(id, answer, now);
  Tick(now);
}

void MeshCore::RequestStart(StartReceiver receiver, TimePoint now) {
  if (driver_.Running() || pending_) {
    receiver(MeshCode::kUpdateRunning);
    return;
  }
  pending_.emplace(PendingStart{std::move(receiver), ++round_, {}, now + kRefresh});
  for (const auto& [id, node] : registry_.Nodes()) pending_->missing.insert(id);
  commands_.AskAll(round_);
}

void MeshCore::BeginPending() {
  const StartReceiver receiver = std::move(pending_->receiver);
  pending_.reset();
  receiver(Begin());
}

// Some nodes would be updated and others not, and that would count as finished.
bool MeshCore::HoldsBrokenDownload() const {
  if (!download::IsLastDownloadBroken()) return false;
  bool holds = false;
  for (const auto& [id, node] : registry_.Nodes()) {
    if (!node.report || node.report->staged_version.empty()) continue;
    Log(LOG_ERR, "update: not started: node %u still holds %s of a download that broke off", id,
        node.report->staged_version.c_str());
    holds = true;
  }
  return holds;
}

// What is not on disk would be forgotten in the CAP's own restart: no update begins without it.
MeshCode MeshCore::Begin() {
  if (HoldsBrokenDownload()) return MeshCode::kPatchesIncomplete;
  UpdateRecord previous = driver_.Record();
  const MeshCode code = driver_.Begin(registry_, {Seconds(), CauseNow()});
  if (code != MeshCode::kOk) return code;
  if (!store_.Save(driver_.Record())) {
    driver_.Abandon(std::move(previous));
    return MeshCode::kCannotSaveState;
  }
  Log(LOG_NOTICE, "update: begins with %zu nodes", driver_.Record().nodes.size());
  return code;
}

void MeshCore::Tick(TimePoint now) {
  if (pending_ && (pending_->missing.empty() || now >= pending_->until)) BeginPending();
  const std::vector<std::uint32_t> starts = driver_.Step(now);
  // On disk first: after a restart in between, a node must be known to have been told.
  if (store_.Save(driver_.Record())) {
    for (const std::uint32_t id : starts) commands_.Start(id);
  } else {
    driver_.NotTold(starts);
  }
  history_.Note(driver_.Record(), Seconds());
  if (!are_nodes_saved_) are_nodes_saved_ = node_store_.Save(registry_);
  keeper_.Keep(driver_.Record());
}

}  // namespace kalo::meshd
