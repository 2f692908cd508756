#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>

#include "box/layout.h"

namespace kalo::box {

/// One node of the mesh, seen by the launcher: a box in which node-init runs. A node that wants it
/// is started again at once; one that ends by itself is started again after a pause.
class NodeBox {
 public:
  using Clock = std::chrono::steady_clock;

  /// What all nodes have in common.
  struct Setup {
    Layout layout;
    std::filesystem::path build;  ///< the build folder, which node-init is run from
    std::uint64_t tmp_bytes = 0;  ///< size of /tmp
    int auto_check_s = 0;         ///< for node 0; 0: never
    int auto_upgrade_s = 0;       ///< for node 0; 0: never
    int listen_fd = -1;           ///< for node 0's web API server
  };

  NodeBox(int id, const Setup& setup) : id_(id), setup_(setup) {}

  [[nodiscard]] int Id() const { return id_; }
  /// @return 0 when the node is off.
  [[nodiscard]] pid_t Pid() const { return pid_; }

  /// Starts the node when it is wanted and off, and its pause is over. Call it from the main
  /// thread: the box ends with the thread that started it.
  void Tick(Clock::time_point now);
  /// The box ended with this status.
  void OnExit(int status, Clock::time_point now);
  /// Says whether the node shall be on.
  void SetWanted(bool wanted) { wanted_ = wanted; }
  /// Ends the node as a pulled plug does.
  void PullPlug();
  /// Asks the node to switch off in order.
  void SwitchOff();

 private:
  int id_;
  Setup setup_;
  bool wanted_ = true;
  pid_t pid_ = 0;
  Clock::time_point not_before_;
};

}  // namespace kalo::box
