#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/paths.h"
#include "services/meshd/mesh_core.h"
#include "services/meshd/node_worker.h"

namespace kalo::meshd {

struct MeshServiceOptions {
  std::chrono::milliseconds interval{
      1000};  ///< of heartbeats and ticks; ticks at least each second
  std::string state_folder = KALO::paths::kMeshState;
  UpdateTiming timing;
  /// Called once, on another thread, when no node can be called any more in this process. Must not
  /// throw.
  std::function<void()> on_tls_unusable = [] {};
};

/// The mesh service without its face on the bus: the core, the threads that call the nodes, and the
/// one that ticks. All calls may be made from any thread, and none waits for a node.
class MeshService final : private NodeCommands, private NodeEvents {
 public:
  MeshService(const std::vector<MeshNode>& nodes, const MakeNodeApi& make_api,
              const MeshServiceOptions& options);
  MeshService(const MeshService&) = delete;
  MeshService& operator=(const MeshService&) = delete;
  /// Ends the threads; a call that is under way is waited for.
  ~MeshService() override;

  [[nodiscard]] KALO::MESH::SDK::Client::NodeInfosResult NodeInfos() const;
  [[nodiscard]] KALO::MESH::SDK::Client::RepeaterAccessInfosResult AccessInfos() const;
  [[nodiscard]] KALO::MESH::SDK::Client::MeshSystemStatus SystemStatus() const;
  [[nodiscard]] KALO::MESH::SDK::Client::SystemUpdateProgress Progress() const;
  [[nodiscard]] MeshDetails Details() const;

  /// @param receiver is called once, on any thread, unless the service is destroyed before; may
  ///                 wait for others who call this object
  void StartUpdate(StartReceiver receiver);

 private:
  void AskAll(std::uint64_t round) override;
  void Start(std::uint32_t id) override;
  void OnReport(std::uint32_t id, std::uint64_t round,
                const std::optional<NodeReport>& report) override;
  void OnStartAnswer(std::uint32_t id, const StartAnswer& answer) override;
  void Deliver(std::unique_lock<std::mutex>& lock);
  void RunTicks(const std::stop_token& stop, std::chrono::milliseconds interval);

  const std::function<void()> on_tls_unusable_;
  mutable std::mutex mutex_;
  std::vector<std::function<void()>> answers_;  ///< to be given when the mutex is free
  UpdateStore store_;
  UpdateHistory history_;
  NodeStore node_store_;
  MeshCore core_;
  std::map<std::uint32_t, std::unique_ptr<NodeWorker>> workers_;
  std::condition_variable_any stopping_;
  std::jthread ticker_;
};

}  // namespace kalo::meshd
