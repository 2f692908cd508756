#pragma once

#include <gnutls/gnutls.h>
#include <microhttpd.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "host/core/unique_fd.h"
#include "services/webapid/event_loop.h"

namespace kalo::webapid {

/// Which connections make room for new ones: the lower, the earlier.
enum class ConnectionRank {
  kUnknown,  ///< has shown neither a session nor a certificate yet
  kKnown,    ///< did so in an earlier request
  kServed,   ///< a request of it is being served: never closed for another
};

/// Returns what counts as one client: the IPv4 address, or an IPv6 network of 64 bits.
[[nodiscard]] std::string PeerName(const sockaddr_storage& address);

/// One client's connection from accept to close, over all its requests. It has a deadline of its
/// own: the library's time-out is for silence, and a client that sends a byte now and then would
/// stay for ever.
///
/// The library gets the connection when its first bytes have come. During the TLS handshake the
/// connection is suspended whenever the client's next message is awaited, since the library
/// (0.9.75) takes an unfinished handshake for one that can go on and asks to be run again at once.
class ClientConnection {
 public:
  /// @param loop borrowed; outlives the connection
  /// @param number grows with each connection
  /// @param on_bytes called when the library does not watch the connection, and something has come
  ClientConnection(EventLoop& loop, UniqueFd socket, const sockaddr_storage& address,
                   std::uint64_t number, std::function<void()> on_bytes);
  ClientConnection(const ClientConnection&) = delete;
  ClientConnection& operator=(const ClientConnection&) = delete;
  ~ClientConnection();

  /// @return false for a connection that ended before anything came.
  [[nodiscard]] bool IsWanted() const;
  /// Gives the connection to the library, or lets the library continue its handshake. Then run the
  /// library and call Settle.
  /// @return false when the library refuses the connection; then the library has closed it
  [[nodiscard]] bool Continue(MHD_Daemon* daemon);
  /// Notes the library's name for this connection; sets TCP_NODELAY: an answer must not wait for an
  /// acknowledgement.
  void SetLibraryConnection(MHD_Connection* connection);
  /// Suspends the connection if its handshake has still to go on.
  /// @return whether requests may come now
  [[nodiscard]] bool Settle();
  /// The handshake is over: a request has come.
  void SetOpen() { phase_ = Phase::kOpen; }
  /// Resumes a suspended handshake: the library must not be stopped with one.
  void EndHandshake();

  /// Cuts the connection when this time is over, unless the deadline is set again before.
  void SetDeadline(std::chrono::seconds from_now);
  void ClearDeadline() { deadline_.reset(); }

  /// Ends the connection at once.
  void Cut();
  /// @return whether the connection was cut and is about to go.
  [[nodiscard]] bool IsCut() const { return is_cut_; }
  void SetRank(ConnectionRank rank) { rank_ = rank; }
  [[nodiscard]] ConnectionRank Rank() const { return rank_; }

  /// The target of the request that is coming in, in the library's buffer.
  void SetTarget(std::string_view target) { target_ = target; }
  [[nodiscard]] std::string_view Target() const { return target_; }

  /// Keeps back what the library sends until Flush is called. It sends head and body of an answer
  /// one after the other; kept back they leave in one piece, which costs half as much. Only for
  /// short answers, and not for the last one of a connection, which the library ends before Flush.
  /// Does nothing while the client has not taken what was sent before.
  void Hold();
  /// Sends what was kept back.
  void Flush();

  [[nodiscard]] std::uint64_t Number() const { return number_; }
  [[nodiscard]] const std::string& Peer() const { return peer_; }
  /// @return the user that the process at the other end acts as; empty when it is on another
  /// machine.
  [[nodiscard]] std::optional<uid_t> PeerUser() const;
  /// Verifies the client's certificate once.
  /// @return the mesh node that it belongs to; empty when there is none.
  [[nodiscard]] std::optional<int> NodeId();

 private:
  enum class Phase {
    kSilent,     ///< accepted; nothing has come yet
    kSuspended,  ///< the library's, suspended in its handshake
    kRunning,    ///< the library's, takes a step of its handshake
    kOpen,       ///< the library's, for requests
  };

  void AwaitBytes();
  void Push();
  void StartTimer(EventLoop::Clock::time_point when);
  void OnTimer();

  EventLoop& loop_;
  UniqueFd owned_;  // until the library has it
  int socket_;
  sockaddr_storage address_;
  std::string peer_;
  std::uint64_t number_;
  std::function<void()> on_bytes_;
  EventLoop::WatchId watch_ = 0;
  Phase phase_ = Phase::kSilent;
  ConnectionRank rank_ = ConnectionRank::kUnknown;
  bool is_cut_ = false;
  std::string_view target_;
  MHD_Connection* connection_ = nullptr;
  gnutls_session_t session_ = nullptr;  // the library's; none without TLS
  std::optional<EventLoop::Clock::time_point> deadline_;
  // Set anew several times a request, the deadline mostly moves on; so the timer stays where it was
  // and looks, when it comes, whether it is time.
  std::optional<EventLoop::TimerId> timer_;
  bool verified_ = false;
  std::optional<int> node_id_;
};

}  // namespace kalo::webapid
