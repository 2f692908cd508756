#pragma once

#include <gnutls/gnutls.h>
#include <microhttpd.h>
#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "services/webapid/event_loop.h"

namespace kalo::webapid {

/// One client's connection, over all its requests. It has a deadline of its own: the library's
/// time-out is for silence, and a client that sends a byte now and then would stay for ever.
class ClientConnection {
 public:
  /// Sets TCP_NODELAY: an answer must not wait for an acknowledgement.
  /// @param loop borrowed; outlives the connection
  ClientConnection(EventLoop& loop, MHD_Connection* connection);
  ClientConnection(const ClientConnection&) = delete;
  ClientConnection& operator=(const ClientConnection&) = delete;
  ~ClientConnection();

  /// Cuts the connection when this time is over, unless the deadline is set again before.
  void SetDeadline(std::chrono::seconds from_now);
  void ClearDeadline() { deadline_.reset(); }

  /// Keeps back what the library sends until Flush is called. It sends head and body of an answer
  /// one after the other; kept back they leave in one piece, which costs half as much. Only for
  /// short answers, and not for the last one of a connection, which the library ends before Flush.
  /// Does nothing while the client has not taken what was sent before.
  void Hold();
  /// Sends what was kept back.
  void Flush();

  /// @return the address that counts as one client: the IPv4 address, or an IPv6 network of 64
  /// bits.
  [[nodiscard]] std::string Peer() const;
  /// @return the user that the process at the other end acts as; empty when it is on another
  /// machine.
  [[nodiscard]] std::optional<uid_t> PeerUser() const;
  /// Verifies the client's certificate once.
  /// @return the mesh node that it belongs to; empty when there is none.
  [[nodiscard]] std::optional<int> NodeId();

 private:
  /// Sends what the system keeps back.
  void Push();
  void StartTimer(EventLoop::Clock::time_point when);
  void OnTimer();

  EventLoop& loop_;
  MHD_Connection* connection_;
  int socket_ = -1;                     // the library's
  gnutls_session_t session_ = nullptr;  // the library's; none without TLS
  std::optional<EventLoop::Clock::time_point> deadline_;
  // Set anew several times a request, the deadline mostly moves on; so the timer stays where it was
  // and looks, when it comes, whether it is time.
  std::optional<EventLoop::TimerId> timer_;
  bool verified_ = false;
  std::optional<int> node_id_;
};

}  // namespace kalo::webapid
