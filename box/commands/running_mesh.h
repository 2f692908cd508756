#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>

#include "box/event_loop.h"
#include "box/layout.h"
#include "host/core/signal_queue.h"
#include "host/core/unique_fd.h"

namespace kalo::box {

/// A mesh seen from the machine: the box with a network of its own in which the launcher runs the
/// nodes. It ends with this object, and with this process however that ends.
class RunningMesh {
 public:
  struct Options {
    std::filesystem::path build;
    int nodes = 0;
    std::uint64_t disk_mib = 0;  ///< of each node's /volume1
    std::uint64_t tmp_mib = 0;   ///< of each node's /tmp
    int auto_check_s = 0;        ///< how often the CAP looks for updates by itself; 0: never
    int auto_upgrade_s = 0;      ///< how often it installs what it finds; 0: never
    int feed_rate_kib = 0;       ///< what the update feed gives a second; 0: what it can
  };

  /// Starts the mesh. Call it from the main thread, with no other thread running.
  /// @param listen_fd the administrators' port on the machine
  /// @throws std::system_error
  RunningMesh(Layout layout, Options options, int listen_fd);
  RunningMesh(const RunningMesh&) = delete;
  RunningMesh& operator=(const RunningMesh&) = delete;
  ~RunningMesh();

  /// @return whether every node had a healthy boot before the deadline; false at once when the mesh
  ///         ended or was told to end.
  [[nodiscard]] bool WaitUntilHealthy(std::chrono::seconds deadline);
  /// Runs until SIGTERM, SIGINT or SIGHUP, or until the mesh ends by itself.
  void Run();

 private:
  void OnSignal();
  [[nodiscard]] bool IsHealthy() const;
  void Stop();

  Layout layout_;
  Options options_;
  SignalQueue signals_;
  EventLoop loop_;
  pid_t box_ = 0;
  bool told_to_end_ = false;
};

}  // namespace kalo::box
