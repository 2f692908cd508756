#pragma once

#include <filesystem>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include "box/control.h"
#include "box/event_loop.h"
#include "box/launcher/node_box.h"
#include "box/service.h"
#include "host/core/signal_queue.h"

namespace kalo::box {

/// Runs all nodes of a mesh, and the maker's update feed, inside the box that gives them their own
/// network. Serves on the state
/// folder's control socket:
///   {"op": "offline", "node": n}   pulls the plug; answered when the node is gone
///   {"op": "online", "node": n}    starts it again
///   {"op": "down"}                 switches all off; answered when they are
class Launcher {
 public:
  /// @param feed_rate_kib what the feed gives a second; 0: what it can
  Launcher(const NodeBox::Setup& setup, int nodes, int feed_rate_kib);

  /// Runs until told to end. No node runs any more then.
  void Run();

 private:
  void OnSignal();
  void Reap();
  void OnConnection();
  void Answer(ControlChannel channel, const Json::Value& request);
  void SetOffline(NodeBox& node, ControlChannel channel);
  void EndNodes();
  [[nodiscard]] bool AnyRuns() const;

  // Somebody who is told when the node has ended.
  struct Waiting {
    int node;
    ControlChannel channel;
  };

  SignalQueue signals_;
  UniqueFd control_;
  EventLoop loop_;
  std::list<NodeBox> nodes_;
  Service feed_;  ///< the maker's update feed, outside the mesh
  std::list<Waiting> waiting_;
  std::optional<ControlChannel> down_;
  bool ending_ = false;
};

}  // namespace kalo::box
