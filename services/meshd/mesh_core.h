#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <vector>

#include "host/mesh/mesh_details.h"
#include "platform/mesh/types.h"
#include "services/meshd/node_api.h"
#include "services/meshd/node_registry.h"
#include "services/meshd/node_store.h"
#include "services/meshd/state_file_keeper.h"
#include "services/meshd/update_driver.h"
#include "services/meshd/update_history.h"
#include "services/meshd/update_store.h"

namespace kalo::meshd {

/// Orders to those who call the nodes. Both return at once; the outcome is reported later.
class NodeCommands {
 public:
  NodeCommands() = default;
  NodeCommands(const NodeCommands&) = delete;
  NodeCommands& operator=(const NodeCommands&) = delete;
  virtual ~NodeCommands() = default;

  /// Asks every node what it is now, ahead of its next heartbeat.
  /// @param round goes back with each answer that was asked for after this call
  virtual void AskAll(std::uint64_t round) = 0;
  virtual void Start(std::uint32_t id) = 0;
};

/// Receives how a request to start an update ended.
using StartReceiver = std::function<void(mesh::MeshCode)>;

/// What the mesh service knows and decides: what the nodes said, the update, its files. One thread
/// at a time; never waits for a node.
class MeshCore {
 public:
  /// How long a request to start an update waits for the nodes to say what is staged on them. Below
  /// the client's patience, above a hanging node's.
  static constexpr std::chrono::milliseconds kRefresh{3000};

  /// Goes on with the update that the store holds.
  /// @param commands, store, history, node_store borrowed
  MeshCore(const std::vector<MeshNode>& nodes, NodeCommands& commands, UpdateStore& store,
           UpdateHistory& history, NodeStore& node_store, UpdateTiming timing, TimePoint now);

  /// A heartbeat's outcome.
  /// @param round  of the last AskAll before the node was asked
  /// @param report empty: no answer
  void Reported(std::uint32_t id, std::uint64_t round, const std::optional<NodeReport>& report,
                TimePoint now);
  void StartAnswered(std::uint32_t id, const StartAnswer& answer, TimePoint now);

  /// Begins an update, after asking every node once more what is staged on it.
  /// @param receiver is called once, from this call or a later one
  void RequestStart(StartReceiver receiver, TimePoint now);

  /// Moves everything on that waits for time to pass, and looks after the state files.
  void Tick(TimePoint now);

  [[nodiscard]] const NodeRegistry& Registry() const { return registry_; }
  [[nodiscard]] const UpdateRecord& Record() const { return driver_.Record(); }

 private:
  struct PendingStart {
    StartReceiver receiver;
    std::uint64_t round = 0;
    std::set<std::uint32_t> missing;
    TimePoint until{};
  };

  void BeginPending();
  [[nodiscard]] mesh::MeshCode Begin();
  [[nodiscard]] bool HoldsBrokenDownload() const;

  NodeCommands& commands_;
  UpdateStore& store_;
  UpdateHistory& history_;
  NodeStore& node_store_;
  NodeRegistry registry_;
  UpdateDriver driver_;
  StateFileKeeper keeper_;
  std::optional<PendingStart> pending_;
  std::uint64_t round_ = 0;
  bool are_nodes_saved_ = false;
};

}  // namespace kalo::meshd
