#pragma once

#include <microhttpd.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/webapi/module_description.h"
#include "services/webapid/body_reader.h"
#include "services/webapid/caller.h"
#include "services/webapid/client_connection.h"
#include "services/webapid/event_stream.h"
#include "services/webapid/reply.h"
#include "services/webapid/row_table.h"
#include "services/webapid/upload_store.h"

namespace kalo::webapid {

enum class PortKind {
  kAdmin,  ///< browsers and command lines: TLS, a session for each request
  kMesh,   ///< other nodes: TLS, a certificate of the mesh
  kLocal,  ///< root on this router: a socket in the file system, no session
};

enum class RequestKind { kRow, kLogin, kLogout };

/// One HTTP request from its headers to its answer. Lives until the library is done with it, also
/// when the client has gone.
class Request {
 public:
  Request(MHD_Connection* connection, ClientConnection& client, PortKind port)
      : connection_(connection), client_(client), port_(port) {}

  [[nodiscard]] MHD_Connection* Connection() const { return connection_; }
  [[nodiscard]] ClientConnection& Client() const { return client_; }
  [[nodiscard]] PortKind Port() const { return port_; }
  /// @return the header's or cookie's text; empty when it was not sent.
  [[nodiscard]] std::string Header(const char* name) const;
  [[nodiscard]] std::string Cookie(const char* name) const;
  /// @return the announced size of the body; empty when there is none or it comes in chunks.
  [[nodiscard]] std::optional<std::uint64_t> ContentLength() const;
  /// @return whether the header says in one way only where the body ends. Two lengths, a length
  ///         beside a transfer encoding, an odd encoding: others may have read it differently.
  [[nodiscard]] bool TellsItsEnd() const;

  /// @return whether the library ends the connection after the answer, going by the header.
  [[nodiscard]] bool IsLast(std::string_view version) const;

  /// Answers the request, now or after the body, and removes its uploads. The first answer counts.
  void Answer(Reply reply);
  [[nodiscard]] const std::optional<Reply>& GetReply() const { return reply_; }
  /// Takes the connection out of the library's hands until Answer is called.
  void Suspend();

  // What the headers came to.
  RequestKind kind = RequestKind::kRow;
  const webapi::RowDescription* row = nullptr;
  Caller caller;

  std::optional<UploadFolder> uploads;
  std::unique_ptr<BodyReader> body;  ///< none when the headers were refused
  std::uint64_t receive_limit = 0;   ///< beyond it the connection is cut
  std::uint64_t received = 0;
  std::unique_ptr<EventStream> stream;  ///< when the answer is one
  bool completed = false;               ///< the body is whole and the request under way
  bool queued = false;                  ///< the library has the answer

 private:
  MHD_Connection* connection_;
  ClientConnection& client_;
  PortKind port_;
  std::optional<Reply> reply_;
  bool suspended_ = false;
};

/// Decides about requests.
class RequestServer {
 public:
  virtual ~RequestServer() = default;
  /// The headers are there: answers, or sets body and receive_limit.
  virtual void Begin(Request& request, const std::string& method, const std::string& path) = 0;
  /// The body is there too: answers, or sees to it that somebody will.
  virtual void Complete(Request& request) = 0;
};

}  // namespace kalo::webapid
