#include "services/meshd/mesh_service.h"

#include <syslog.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "host/core/log.h"
#include "host/update/tls_library.h"
#include "services/meshd/mesh_answers.h"
#include "services/meshd/update_progress.h"

namespace kalo::meshd {
namespace {

namespace Client = KALO::MESH::SDK::Client;

constexpr std::chrono::milliseconds kLongestTick{1000};

TimePoint Now() {
  return std::chrono::steady_clock::now();
}

}  // namespace

MeshService::MeshService(const std::vector<MeshNode>& nodes, const MakeNodeApi& make_api,
                         const MeshServiceOptions& options)
    : on_tls_unusable_(options.on_tls_unusable),
      store_(options.state_folder),
      history_(options.state_folder),
      node_store_(options.state_folder),
      core_(nodes, *this, store_, history_, node_store_, options.timing, Now()) {
  NodeEvents& events = *this;
  const std::lock_guard guard(mutex_);
  for (const MeshNode& node : nodes) {
    workers_[node.id] = std::make_unique<NodeWorker>(node, make_api, events, options.interval);
  }
  // At once: a file that says "upgrading" from before a restart must not wait.
  core_.Tick(Now());
  ticker_ = std::jthread([this, tick = std::min(options.interval, kLongestTick)](
                             const std::stop_token& stop) { RunTicks(stop, tick); });
}

MeshService::~MeshService() {
  ticker_ = {};
  for (const auto& [id, worker] : workers_) worker->RequestStop();
  // All have ended before the first goes: each may still give orders to the others.
  for (const auto& [id, worker] : workers_) worker->Join();
}

Client::NodeInfosResult MeshService::NodeInfos() const {
  const std::lock_guard guard(mutex_);
  return NodeInfosOf(core_.Registry());
}

Client::RepeaterAccessInfosResult MeshService::AccessInfos() const {
  const std::lock_guard guard(mutex_);
  return AccessInfosOf(core_.Registry());
}

Client::MeshSystemStatus MeshService::SystemStatus() const {
  const std::lock_guard guard(mutex_);
  return SystemStatusOf(core_.Registry());
}

Client::SystemUpdateProgress MeshService::Progress() const {
  const std::lock_guard guard(mutex_);
  return ProgressOf(core_.Record());
}

MeshDetails MeshService::Details() const {
  const std::lock_guard guard(mutex_);
  return DetailsOf(core_.Registry(), core_.Record());
}

void MeshService::StartUpdate(StartReceiver receiver) {
  std::unique_lock lock(mutex_);
  core_.RequestStart(
      [this, receiver = std::move(receiver)](mesh::MeshCode code) {
        answers_.emplace_back([receiver, code] { receiver(code); });
      },
      Now());
  Deliver(lock);
}

// A receiver takes the bus connection's lock, which its thread holds while it waits for ours.
void MeshService::Deliver(std::unique_lock<std::mutex>& lock) {
  if (answers_.empty()) return;
  auto answers = std::exchange(answers_, {});
  lock.unlock();
  for (const auto& answer : answers) answer();
  answers.clear();  // that takes the connection's lock too
  lock.lock();
}

void MeshService::AskAll(std::uint64_t round) {
  for (const auto& [id, worker] : workers_) worker->AskNow(round);
}

void MeshService::Start(std::uint32_t id) {
  const auto worker = workers_.find(id);
  if (worker != workers_.end()) worker->second->Start();
}

void MeshService::OnReport(std::uint32_t id, std::uint64_t round,
                           const std::optional<NodeReport>& report) {
  std::unique_lock lock(mutex_);
  core_.Reported(id, round, report, Now());
  Deliver(lock);
}

void MeshService::OnStartAnswer(std::uint32_t id, const StartAnswer& answer) {
  std::unique_lock lock(mutex_);
  core_.StartAnswered(id, answer, Now());
  Deliver(lock);
}

void MeshService::RunTicks(const std::stop_token& stop, std::chrono::milliseconds interval) {
  std::unique_lock lock(mutex_);
  while (!stop.stop_requested()) {
    stopping_.wait_for(lock, stop, interval, [] { return false; });
    if (stop.stop_requested()) continue;
    if (!IsTlsUsable()) {
      lock.unlock();
      return on_tls_unusable_();
    }
    try {
      core_.Tick(Now());
      Deliver(lock);
    } catch (const std::exception& e) {
      Log(LOG_ERR, "%s", e.what());
      if (!lock.owns_lock()) lock.lock();
    }
  }
}

}  // namespace kalo::meshd
