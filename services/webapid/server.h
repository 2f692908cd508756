#pragma once

#include <list>
#include <optional>
#include <string>

#include "services/webapid/authentication.h"
#include "services/webapid/child_watch.h"
#include "services/webapid/configuration.h"
#include "services/webapid/event_hub.h"
#include "services/webapid/event_loop.h"
#include "services/webapid/front.h"
#include "services/webapid/host_names.h"
#include "services/webapid/listener.h"
#include "services/webapid/login_queue.h"
#include "services/webapid/page_files.h"
#include "services/webapid/recovery.h"
#include "services/webapid/row_table.h"
#include "services/webapid/session_store.h"
#include "services/webapid/upload_store.h"
#include "services/webapid/user_store.h"
#include "services/webapid/worker_pool.h"

namespace kalo::webapid {

/// The whole front process: puts the parts together and runs them until SIGTERM or SIGINT.
class Server {
 public:
  /// @param inherited a listening socket for administrators besides the configured one; -1: none
  /// @throws std::exception when it cannot start: ports, TLS files, session folder
  Server(const Configuration& configuration, int inherited);

  /// Blocks the signals that it takes for itself and serves until it is told to end.
  void Run();

 private:
  void AddListener(UniqueFd socket, PortKind port);
  void AddLocalListener();
  void OnSignal();
  void End();
  [[nodiscard]] std::optional<std::chrono::milliseconds> Turn();

  Configuration configuration_;
  UniqueFd signals_;
  EventLoop loop_;
  ChildWatch children_;
  RowTable rows_;
  UploadStore uploads_;
  PageFiles page_;
  HostNames host_names_;
  UserStore users_;
  SessionStore sessions_;
  Recovery recovery_;
  LoginQueue logins_;
  WorkerPool admin_workers_;
  WorkerPool mesh_workers_;
  EventHub events_;
  Authentication authentication_;
  Front front_;
  std::list<Listener> listeners_;
};

}  // namespace kalo::webapid
