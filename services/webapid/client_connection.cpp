#include "services/webapid/client_connection.h"

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cstring>
#include <memory>
#include <utility>

#include "services/webapid/mesh_identity.h"

namespace kalo::webapid {
namespace {

// gnutls_session_get_desc has no description of a session before its handshake is over.
bool IsHandshakeOver(gnutls_session_t session) {
  char* description = gnutls_session_get_desc(session);
  const bool is_over = description != nullptr;
  gnutls_free(description);
  return is_over;
}

}  // namespace

std::string PeerName(const sockaddr_storage& address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (address.ss_family == AF_INET) {
    sockaddr_in v4{};
    std::memcpy(&v4, &address, sizeof(v4));
    inet_ntop(AF_INET, &v4.sin_addr, text.data(), text.size());
    return text.data();
  }
  if (address.ss_family != AF_INET6) return "local";
  sockaddr_in6 v6{};
  std::memcpy(&v6, &address, sizeof(v6));
  if (IN6_IS_ADDR_V4MAPPED(&v6.sin6_addr)) {  // IPv4 on a socket for both
    inet_ntop(AF_INET, &v6.sin6_addr.s6_addr[12], text.data(), text.size());
    return text.data();
  }
  std::memset(&v6.sin6_addr.s6_addr[8], 0, 8);
  inet_ntop(AF_INET6, &v6.sin6_addr, text.data(), text.size());
  return text.data();
}

ClientConnection::ClientConnection(EventLoop& loop, UniqueFd socket,
                                   const sockaddr_storage& address, std::uint64_t number,
                                   std::function<void()> on_bytes)
    : loop_(loop),
      owned_(std::move(socket)),
      socket_(owned_.Get()),
      address_(address),
      peer_(PeerName(address)),
      number_(number),
      on_bytes_(std::move(on_bytes)) {
  AwaitBytes();
}

ClientConnection::~ClientConnection() {
  loop_.Forget(watch_);
  if (timer_) loop_.Cancel(*timer_);
}

void ClientConnection::AwaitBytes() {
  watch_ = loop_.Watch(socket_, on_bytes_);
}

bool ClientConnection::IsWanted() const {
  char byte = 0;
  return !owned_ || (!is_cut_ && recv(socket_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0);
}

bool ClientConnection::Continue(MHD_Daemon* daemon) {
  loop_.Forget(std::exchange(watch_, 0));
  const bool is_new = phase_ == Phase::kSilent;
  phase_ = Phase::kRunning;
  if (is_new) {
    return MHD_add_connection(daemon, owned_.Release(), reinterpret_cast<sockaddr*>(&address_),
                              sizeof(address_)) == MHD_YES;
  }
  MHD_resume_connection(connection_);
  return true;
}

void ClientConnection::SetLibraryConnection(MHD_Connection* connection) {
  connection_ = connection;
  Push();
  const MHD_ConnectionInfo* info =
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_GNUTLS_SESSION);
  if (info != nullptr) session_ = static_cast<gnutls_session_t>(info->tls_session);
}

bool ClientConnection::Settle() {
  if (phase_ != Phase::kRunning) return false;
  if (session_ == nullptr || IsHandshakeOver(session_)) {
    phase_ = Phase::kOpen;
    return true;
  }
  phase_ = Phase::kSuspended;
  MHD_suspend_connection(connection_);
  AwaitBytes();
  return false;
}

void ClientConnection::EndHandshake() {
  if (phase_ != Phase::kSuspended) return;
  loop_.Forget(std::exchange(watch_, 0));
  phase_ = Phase::kOpen;
  MHD_resume_connection(connection_);
}

void ClientConnection::Cut() {
  is_cut_ = true;
  // The watch or the library then sees the end of the connection and clears up as always.
  (void)shutdown(socket_, SHUT_RDWR);
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
  Cut();
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
