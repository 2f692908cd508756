#include "tests/support/raw_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <utility>

namespace kalo::test {
namespace {

void LimitWaiting(int fd, std::chrono::milliseconds limit) {
  timeval time{};
  time.tv_sec = limit.count() / 1000;
  time.tv_usec = limit.count() % 1000 * 1000;
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof(time));
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof(time));
}

// The length that the header of an answer tells.
std::size_t BodyLength(std::string header) {
  std::transform(header.begin(), header.end(), header.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const std::size_t at = header.find("content-length:");
  return at == std::string::npos ? 0 : std::strtoul(header.c_str() + at + 15, nullptr, 10);
}

}  // namespace

UniqueFd Connect(int port, const Origin& origin) {
  UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  inet_pton(AF_INET, origin.address.c_str(), &address.sin_addr);
  if (bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) return {};
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (origin.receive_bytes > 0) {
    setsockopt(fd.Get(), SOL_SOCKET, SO_RCVBUF, &origin.receive_bytes, sizeof(int));
  }
  const int yes = 1;
  setsockopt(fd.Get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes));
  if (connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) fd.Reset();
  return fd;
}

RawClient::RawClient(int port, const ClientFiles& files, const Origin& origin)
    : fd_(Connect(port, origin)) {
  gnutls_certificate_credentials_t credentials = nullptr;
  gnutls_certificate_allocate_credentials(&credentials);
  credentials_.reset(credentials);
  if (!files.certificate.empty()) {
    gnutls_certificate_set_x509_key_file(credentials, files.certificate.c_str(), files.key.c_str(),
                                         GNUTLS_X509_FMT_PEM);
  }
  gnutls_session_t session = nullptr;
  gnutls_init(&session, GNUTLS_CLIENT | GNUTLS_NO_SIGNAL);
  session_.reset(session);
  if (fd_) Handshake(origin.priorities);
}

void RawClient::Handshake(const std::string& priorities) {
  LimitWaiting(fd_.Get(), std::chrono::seconds(20));
  if (priorities.empty()) {
    gnutls_set_default_priority(session_.get());
  } else {
    gnutls_priority_set_direct(session_.get(), priorities.c_str(), nullptr);
  }
  gnutls_credentials_set(session_.get(), GNUTLS_CRD_CERTIFICATE, credentials_.get());
  gnutls_transport_set_int(session_.get(), fd_.Get());
  int result = GNUTLS_E_AGAIN;
  while (result < 0 && gnutls_error_is_fatal(result) == 0) {
    result = gnutls_handshake(session_.get());
    if (result == GNUTLS_E_AGAIN) break;  // the deadline
  }
  open_ = result == GNUTLS_E_SUCCESS;
}

bool RawClient::Send(const std::string& bytes) {
  std::size_t sent = 0;
  while (open_ && sent < bytes.size()) {
    const ssize_t count =
        gnutls_record_send(session_.get(), bytes.data() + sent, bytes.size() - sent);
    if (count == GNUTLS_E_INTERRUPTED) continue;
    open_ = count > 0;
    if (open_) sent += static_cast<std::size_t>(count);
  }
  return open_;
}

bool RawClient::ReadSome() {
  std::array<char, 16384> piece{};
  ssize_t count = GNUTLS_E_INTERRUPTED;
  while (count == GNUTLS_E_INTERRUPTED) {
    count = gnutls_record_recv(session_.get(), piece.data(), piece.size());
  }
  open_ = count > 0;
  if (open_) unread_.append(piece.data(), static_cast<std::size_t>(count));
  return open_;
}

void RawClient::EndSending() {
  (void)gnutls_bye(session_.get(), GNUTLS_SHUT_WR);
}

bool RawClient::Renegotiate() {
  return gnutls_handshake(session_.get()) == GNUTLS_E_SUCCESS;
}

std::string RawClient::Record(std::chrono::milliseconds deadline) {
  LimitWaiting(fd_.Get(), deadline);
  (void)ReadSome();
  return std::exchange(unread_, "");
}

int RawClient::Answer(std::chrono::milliseconds deadline, bool has_body) {
  LimitWaiting(fd_.Get(), deadline);
  std::size_t end = unread_.find("\r\n\r\n");
  while (end == std::string::npos) {
    if (!open_ || !ReadSome()) return 0;
    end = unread_.find("\r\n\r\n");
  }
  const std::string header = unread_.substr(0, end);
  const int status =
      header.size() > 12 ? static_cast<int>(std::strtol(header.c_str() + 9, nullptr, 10)) : 0;
  if (status == 100) {  // the real one follows
    unread_.erase(0, end + 4);
    return Answer(deadline, has_body);
  }
  const std::size_t whole = end + 4 + (has_body ? BodyLength(header) : 0);
  while (unread_.size() < whole && open_ && ReadSome()) {
  }
  if (unread_.size() < whole) return 0;
  unread_.erase(0, whole);
  return status;
}

}  // namespace kalo::test
