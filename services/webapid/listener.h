#pragma once

#include <microhttpd.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/core/unique_fd.h"
#include "services/webapid/configuration.h"
#include "services/webapid/event_loop.h"
#include "services/webapid/request.h"

namespace kalo::webapid {

/// PEM texts of one TLS server.
struct TlsFiles {
  std::string certificate;
  std::string key;
  std::string client_authority;  ///< empty: clients are not asked for a certificate
};

/// One listening socket with its connections: the only place that speaks with the HTTP library,
/// which runs inside our loop.
class Listener {
 public:
  /// @param loop, server borrowed; outlive the listener
  /// @throws std::runtime_error when the library does not start, e.g. for bad TLS files
  Listener(EventLoop& loop, RequestServer& server, UniqueFd socket, PortKind port, TlsFiles tls,
           const Configuration& configuration);
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  /// No request may be suspended any more.
  ~Listener();

  /// Lets the library do what is due, if anything is. Call it each turn of the loop.
  /// @return how long the next turn may wait at most; empty: any time
  [[nodiscard]] std::optional<std::chrono::milliseconds> Run();

 private:
  struct Stop {
    void operator()(MHD_Daemon* daemon) const { MHD_stop_daemon(daemon); }
  };

  static void OnConnection(void* self, MHD_Connection* connection, void** context,
                           MHD_ConnectionNotificationCode code);
  static MHD_Result OnRequest(void* self, MHD_Connection* connection, const char* path,
                              const char* method, const char* version, const char* data,
                              std::size_t* size, void** context);
  static void OnCompleted(void* self, MHD_Connection* connection, void** context,
                          MHD_RequestTerminationCode code);

  [[nodiscard]] MHD_Daemon* Start(int socket);
  /// @return how long the library may be left alone; empty: any time
  [[nodiscard]] std::optional<std::chrono::milliseconds> RunOnce();
  [[nodiscard]] bool IsSending() const;
  [[nodiscard]] Request& Open(MHD_Connection* connection);
  [[nodiscard]] MHD_Result Begin(Request& request, const char* method, const char* path);
  [[nodiscard]] MHD_Result Feed(Request& request, std::string_view data);
  [[nodiscard]] MHD_Result Proceed(Request& request, std::string_view version);
  [[nodiscard]] static MHD_Result Queue(Request& request);

  EventLoop& loop_;
  RequestServer& server_;
  PortKind port_;
  TlsFiles tls_;
  std::chrono::seconds request_time_;
  unsigned connection_limit_;
  std::map<MHD_Connection*, std::unique_ptr<ClientConnection>> clients_;
  std::map<const void*, std::unique_ptr<Request>> requests_;
  std::unique_ptr<MHD_Daemon, Stop> daemon_;
  EventLoop::WatchId watch_ = 0;
  bool ready_ = true;                                ///< something came for the library
  bool moved_ = false;                               ///< it did something in its last run
  int circles_ = 0;                                  ///< runs in which it did nothing
  std::optional<EventLoop::Clock::time_point> due_;  ///< when it wants to look by itself
};

}  // namespace kalo::webapid
