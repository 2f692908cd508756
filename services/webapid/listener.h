#pragma once

#include <microhttpd.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/core/unique_fd.h"
#include "services/webapid/configuration.h"
#include "services/webapid/connection_table.h"
#include "services/webapid/event_loop.h"
#include "services/webapid/request.h"
#include "services/webapid/request_head.h"

namespace kalo::webapid {

/// PEM texts of one TLS server.
struct TlsFiles {
  std::string certificate;
  std::string key;
  std::string client_authority;  ///< empty: clients are not asked for a certificate
};

/// One listening socket with its connections: the only place that speaks with the HTTP library,
/// which runs inside our loop. The listener itself accepts, always, and decides who makes room; the
/// library gets connections on which something has come, and has no limit of its own.
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

  /// Called with the text of each request line.
  static void* OnTarget(void* self, const char* target, MHD_Connection* connection);

  [[nodiscard]] MHD_Daemon* Start();
  void WatchSocket();
  void AcceptAll();
  void PauseAccepting();
  void Add(UniqueFd socket, const sockaddr_storage& address);
  void Continue(std::uint64_t number);
  /// @return how long the library may be left alone; empty: any time
  [[nodiscard]] std::optional<std::chrono::milliseconds> RunLibrary();
  void SettleHandshakes();
  [[nodiscard]] std::chrono::seconds HeadTime() const;
  [[nodiscard]] Request& Open(MHD_Connection* connection);
  [[nodiscard]] MHD_Result Begin(Request& request, const RequestLine& line, const char* path);
  [[nodiscard]] MHD_Result Feed(Request& request, std::string_view data);
  [[nodiscard]] MHD_Result Proceed(Request& request, std::string_view version);
  [[nodiscard]] static MHD_Result Queue(Request& request);

  EventLoop& loop_;
  RequestServer& server_;
  PortKind port_;
  TlsFiles tls_;
  std::chrono::seconds request_time_;
  UniqueFd socket_;
  EventLoop::WatchId socket_watch_ = 0;
  bool has_new_ = false;  ///< connections to accept
  std::optional<EventLoop::TimerId> pause_;
  std::uint64_t last_number_ = 0;
  ClientConnection* joining_ = nullptr;    ///< is given to the library right now
  std::vector<std::uint64_t> handshakes_;  ///< take a step in the next run
  ConnectionTable clients_;
  std::map<const void*, std::unique_ptr<Request>> requests_;
  std::unique_ptr<MHD_Daemon, Stop> daemon_;
  EventLoop::WatchId library_watch_ = 0;
  std::optional<EventLoop::Clock::time_point> due_;  ///< when the library is to run
};

}  // namespace kalo::webapid
