#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "services/meshd/node_api.h"
#include "services/meshd/node_list.h"

namespace kalo::meshd {

/// Receives what a worker found out, on the worker's thread.
class NodeEvents {
 public:
  NodeEvents() = default;
  NodeEvents(const NodeEvents&) = delete;
  NodeEvents& operator=(const NodeEvents&) = delete;
  virtual ~NodeEvents() = default;

  virtual void OnReport(std::uint32_t id, std::uint64_t round,
                        const std::optional<NodeReport>& report) = 0;
  virtual void OnStartAnswer(std::uint32_t id, const StartAnswer& answer) = 0;
};

using MakeNodeApi = std::function<std::unique_ptr<NodeApi>(const MeshNode&)>;

/// Calls one node, on a thread of its own: a node that hangs delays nobody else. Asks it at a
/// regular interval what it is, and at once when told to. One call at a time, so that what a node
/// says after it took the order to install was asked after that.
class NodeWorker {
 public:
  /// @param events borrowed; called until the destructor returns
  NodeWorker(const MeshNode& node, const MakeNodeApi& make_api, NodeEvents& events,
             std::chrono::milliseconds interval);

  /// Waits for the call that is under way, which its own deadline ends.
  ~NodeWorker() = default;
  NodeWorker(const NodeWorker&) = delete;
  NodeWorker& operator=(const NodeWorker&) = delete;

  void AskNow(std::uint64_t round);
  void Start();
  /// Tells the thread to end, without waiting for it.
  void RequestStop() { thread_.request_stop(); }
  /// Waits for it to end.
  void Join() { thread_.join(); }

 private:
  struct Orders {
    bool stop = false;
    bool start = false;
    std::uint64_t round = 0;
  };

  void Run(const std::stop_token& stop);
  [[nodiscard]] StartAnswer TellToStart();
  // Waits for the next heartbeat's time or an order.
  [[nodiscard]] Orders NextOrders(const std::stop_token& stop);

  const std::uint32_t id_;
  const std::chrono::milliseconds interval_;
  NodeEvents& events_;
  std::unique_ptr<NodeApi> api_;

  std::mutex mutex_;
  std::condition_variable_any changed_;
  bool ask_now_ = true;
  bool start_ = false;
  std::uint64_t round_ = 0;

  std::jthread thread_;
};

}  // namespace kalo::meshd
