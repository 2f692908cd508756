#include "services/webapid/client_connection.h"

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cstring>

#include "services/webapid/mesh_identity.h"

namespace kalo::webapid {

ClientConnection::ClientConnection(EventLoop& loop, MHD_Connection* connection)
    : loop_(loop), connection_(connection) {
  const MHD_ConnectionInfo* info =
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
  if (info == nullptr) return;
  socket_ = info->connect_fd;
  Push();
  info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_GNUTLS_SESSION);
  if (info != nullptr) session_ = static_cast<gnutls_session_t>(info->tls_session);
}

ClientConnection::~ClientConnection() {
  if (timer_) loop_.Cancel(*timer_);
}

void ClientConnection::SetDeadline(std::chrono::seconds from_now) {
  deadline_ = EventLoop::Clock::now() + from_now;
  if (!timer_ || timer_->when > *deadline_) StartTimer(*deadline_);
}

void ClientConnection::StartTimer(EventLoop::Clock::time_point when) {
  if (timer_) loop_.Cancel(*timer_);
  timer_ = loop_.At(when, [this] { OnTimer(); });
}

void ClientConnection::OnTimer() {
  timer_.reset();
  if (!deadline_) return;
  if (EventLoop::Clock::now() < *deadline_) return StartTimer(*deadline_);
  // The library then sees the end of the connection and clears up as always.
  (void)shutdown(socket_, SHUT_RDWR);
}

void ClientConnection::Hold() {
  int waiting = 0;
  if (session_ == nullptr || ioctl(socket_, SIOCOUTQ, &waiting) != 0 || waiting > 0) return;
  gnutls_record_cork(session_);
}

// The library also corks the socket, and has it push before there is anything to send.
void ClientConnection::Flush() {
  if (session_ == nullptr) return;
  const int sent = gnutls_record_uncork(session_, 0);
  // Nobody else would send what is left; but a queue that was empty takes any short answer.
  if (sent < 0) (void)shutdown(socket_, SHUT_RDWR);
  if (sent > 0) Push();
}

void ClientConnection::Push() {
  const int on = 1;
  (void)setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

std::string ClientConnection::Peer() const {
  const MHD_ConnectionInfo* info =
      MHD_get_connection_info(connection_, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  if (info == nullptr || info->client_addr == nullptr) return "unknown";
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (info->client_addr->sa_family == AF_INET) {
    sockaddr_in v4{};
    std::memcpy(&v4, info->client_addr, sizeof(v4));
    inet_ntop(AF_INET, &v4.sin_addr, text.data(), text.size());
  } else if (info->client_addr->sa_family == AF_INET6) {
    sockaddr_in6 v6{};
    std::memcpy(&v6, info->client_addr, sizeof(v6));
    std::memset(&v6.sin6_addr.s6_addr[8], 0, 8);
    inet_ntop(AF_INET6, &v6.sin6_addr, text.data(), text.size());
  }
  return text.data();
}

std::optional<uid_t> ClientConnection::PeerUser() const {
  ucred peer{};
  socklen_t length = sizeof(peer);
  if (getsockopt(socket_, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) return std::nullopt;
  return peer.pid > 0 ? std::optional<uid_t>(peer.uid) : std::nullopt;
}

std::optional<int> ClientConnection::NodeId() {
  if (verified_) return node_id_;
  verified_ = true;
  if (session_ != nullptr) node_id_ = VerifiedNodeId(session_);
  return node_id_;
}

}  // namespace kalo::webapid
