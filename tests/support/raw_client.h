#pragma once

#include <gnutls/gnutls.h>

#include <chrono>
#include <memory>
#include <string>
#include <type_traits>

#include "host/core/unique_fd.h"

namespace kalo::test {

/// How a client connects.
struct Origin {
  std::string address = "127.0.0.1";
  int receive_bytes = 0;  ///< of its system's buffer for what it did not read yet; 0: the usual
  std::string priorities = {};  ///< of GnuTLS; empty: the usual
};

/// @return a connection to a port of loopback, on which nothing was said yet; empty when nobody
///         listens.
[[nodiscard]] UniqueFd Connect(int port, const Origin& origin = {});

/// What a client brings along for the mesh port; PEM files, empty for none.
struct ClientFiles {
  std::string certificate;
  std::string key;
};

/// A connection over TLS on which any bytes may be sent. It does not look at the server's
/// certificate.
class RawClient {
 public:
  RawClient(int port, const ClientFiles& files, const Origin& origin = {});
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;
  ~RawClient() = default;

  /// @return whether the handshake went well and nobody closed since.
  [[nodiscard]] bool IsOpen() const { return open_; }
  /// @return false when the server does not take it any more.
  bool Send(const std::string& bytes);
  /// Ends the client's side of the connection, and still reads.
  void EndSending();
  /// Makes another handshake on the connection.
  /// @return whether the server took part.
  [[nodiscard]] bool Renegotiate();
  /// @return what comes in one TLS record; empty when none comes before the deadline.
  [[nodiscard]] std::string Record(std::chrono::milliseconds deadline);
  /// Waits for one whole answer.
  /// @param has_body false for an answer that only tells the length of its body
  /// @return its status; 0 when the server closes instead, or nothing comes before the deadline.
  [[nodiscard]] int Answer(std::chrono::milliseconds deadline, bool has_body);

 private:
  struct Deinit {
    void operator()(gnutls_session_t session) const { gnutls_deinit(session); }
  };
  struct Free {
    void operator()(gnutls_certificate_credentials_t all) const {
      gnutls_certificate_free_credentials(all);
    }
  };
  void Handshake(const std::string& priorities);
  [[nodiscard]] bool ReadSome();

  UniqueFd fd_;
  std::unique_ptr<std::remove_pointer_t<gnutls_certificate_credentials_t>, Free> credentials_;
  std::unique_ptr<std::remove_pointer_t<gnutls_session_t>, Deinit> session_;
  std::string unread_;
  bool open_ = false;
};

}  // namespace kalo::test
