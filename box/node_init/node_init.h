#pragma once

#include <list>
#include <optional>
#include <string>
#include <vector>

#include "box/control.h"
#include "box/event_loop.h"
#include "box/node_init/boot_health.h"
#include "box/node_init/exec_session.h"
#include "box/node_init/system_log.h"
#include "box/service.h"
#include "host/core/signal_queue.h"

namespace kalo::box {

/// How a node's box was started.
struct NodeSetup {
  int listen_fd = -1;      ///< an inherited listening socket for the web API server; -1: none
  int auto_check_s = 0;    ///< how often the node looks for updates by itself; 0: never
  int auto_upgrade_s = 0;  ///< how often it installs what it finds; 0: never
};

/// A node's first process after its folders and firmware are in place: keeps the log, the bus and
/// the services running, judges the boot, and serves the box's requests on /box/control:
///   {"op": "exec", "argv": […]} with descriptors 0 to 2 -> {"status": n}
///   {"op": "signal", "service": …, "signal": n}         to the service and all below it
///   {"op": "want", "service": …, "wanted": bool}        false also ends it
///   {"op": "reboot"}, {"op": "poweroff"}
class NodeInit {
 public:
  /// @param boot_id of this boot
  /// @throws std::system_error
  NodeInit(std::string boot_id, const NodeSetup& setup);
  NodeInit(const NodeInit&) = delete;
  NodeInit& operator=(const NodeInit&) = delete;
  ~NodeInit() = default;

  /// Runs until the node restarts or is switched off. All other processes have ended then.
  /// @return the exit status: 0, or kStartAgain
  [[nodiscard]] int Run();

 private:
  using Clock = Service::Clock;

  void AddServices(const NodeSetup& setup);
  void Tick();
  void ReportHealth();
  void OnSignal();
  void Reap();
  void OnExit(pid_t pid, int status);
  void OnConnection();
  Json::Value Answer(const Json::Value& request);
  Json::Value ChangeService(const Json::Value& request);
  void StartSession(ControlChannel channel, const ControlMessage& message);
  void RunInstaller(const char* word);
  void EndEverything();

  std::string boot_id_;
  SignalQueue signals_;
  SystemLog log_;
  UniqueFd control_;
  EventLoop loop_;
  std::vector<Service> services_;
  std::list<ExecSession> sessions_;
  BootHealth health_;
  pid_t installer_ = 0;
  bool health_reported_ = false;
  std::optional<int> exit_status_;
};

}  // namespace kalo::box
