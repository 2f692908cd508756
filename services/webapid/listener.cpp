#include "services/webapid/listener.h"

#include <sys/socket.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "host/core/log.h"
#include "host/webapi/error_codes.h"

namespace kalo::webapid {
namespace {

// The library clears it before each request; headers need far less.
constexpr std::size_t kConnectionMemory = std::size_t{16} << 10;
constexpr MHD_UNSIGNED_LONG_LONG kMostWait = 60000;  // ms
constexpr int kRuns = 4;                             // in one turn of the loop
constexpr unsigned kNoLimit = 1U << 24;              // ours is lower
constexpr int kAcceptAtOnce = 64;
constexpr std::chrono::milliseconds kAcceptPause{20};
constexpr std::chrono::seconds kHandshakeTime{5};
constexpr std::chrono::seconds kHeadTime{10};
// What a refused request may still send so that it gets its answer on a healthy connection: closing
// one on which bytes still come makes the client's system drop the answer.
constexpr std::uint64_t kReadOver = std::uint64_t{8} << 20;
// With its head it fits into one TLS record.
constexpr std::size_t kOnePiece = std::size_t{8} << 10;
// Neither CBC nor keys without forward secrecy. Renegotiation needs nothing here: the library ends
// a connection whose client asks for another handshake.
constexpr const char* kPriorities =
    "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2:-RSA:-AES-128-CBC:-AES-256-CBC:%SAFE_RENEGOTIATION";

void LogLibrary(void* /*unused*/, const char* format, va_list arguments) {
  std::array<char, 512> line{};
  (void)std::vsnprintf(line.data(), line.size(), format, arguments);
  const std::string_view text = line.data();
  const auto length = static_cast<int>(text.find_last_not_of("\r\n") + 1);
  Log(LOG_DEBUG, "%.*s", length, text.data());
}

// The library hands out a path up to its first NUL; what stands behind would go unseen. No row and
// no file has the name that comes of this.
std::size_t Unescape(void* /*unused*/, MHD_Connection* /*connection*/, char* text) {
  const std::size_t length = MHD_http_unescape(text);
  std::replace(text, text + length, '\0', '?');
  return length;
}

// The library hands out the pointer that it was given for the connection.
ClientConnection& ClientOf(MHD_Connection* connection) {
  const MHD_ConnectionInfo* info =
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
  return *static_cast<ClientConnection*>(info->socket_context);
}

bool IsKnown(const Request& request) {
  return !std::holds_alternative<std::monostate>(request.caller);
}

MHD_OptionItem Option(MHD_OPTION option, std::intptr_t value, const void* pointer = nullptr) {
  return {option, value, const_cast<void*>(pointer)};
}

template <typename Function>
std::intptr_t Callback(Function* function) {
  return reinterpret_cast<std::intptr_t>(function);
}

}  // namespace

Listener::Listener(EventLoop& loop, RequestServer& server, UniqueFd socket, PortKind port,
                   TlsFiles tls, const Configuration& configuration)
    : loop_(loop),
      server_(server),
      port_(port),
      tls_(std::move(tls)),
      request_time_(configuration.request_time),
      socket_(std::move(socket)),
      clients_(configuration.connections),
      daemon_(Start()) {
  if (daemon_ == nullptr) {
    throw std::runtime_error("cannot start the HTTPS server; are certificate and key good?");
  }
  const MHD_DaemonInfo* info = MHD_get_daemon_info(daemon_.get(), MHD_DAEMON_INFO_EPOLL_FD);
  library_watch_ = loop_.Watch(info->epoll_fd, [this] { due_ = EventLoop::Clock::now(); });
  WatchSocket();
}

Listener::~Listener() {
  if (pause_) loop_.Cancel(*pause_);
  loop_.Forget(socket_watch_);
  loop_.Forget(library_watch_);
  clients_.EndHandshakes();
}

MHD_Daemon* Listener::Start() {
  std::vector<MHD_OptionItem> options = {
      Option(MHD_OPTION_EXTERNAL_LOGGER, Callback(&LogLibrary)),
      Option(MHD_OPTION_UNESCAPE_CALLBACK, Callback(&Unescape)),
      Option(MHD_OPTION_NOTIFY_CONNECTION, Callback(&OnConnection), this),
      Option(MHD_OPTION_NOTIFY_COMPLETED, Callback(&OnCompleted), this),
      Option(MHD_OPTION_URI_LOG_CALLBACK, Callback(&OnTarget), this),
      Option(MHD_OPTION_CONNECTION_LIMIT, kNoLimit),
      Option(MHD_OPTION_CONNECTION_TIMEOUT, request_time_.count()),
      Option(MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory),
      Option(MHD_OPTION_STRICT_FOR_CLIENT, 1),
  };
  unsigned flags =
      MHD_USE_EPOLL | MHD_USE_NO_LISTEN_SOCKET | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG;
  if (port_ != PortKind::kLocal) {
    flags |= MHD_USE_TLS;
    options.push_back(Option(MHD_OPTION_HTTPS_PRIORITIES, 0, kPriorities));
    options.push_back(Option(MHD_OPTION_HTTPS_MEM_CERT, 0, tls_.certificate.c_str()));
    options.push_back(Option(MHD_OPTION_HTTPS_MEM_KEY, 0, tls_.key.c_str()));
  }
  if (!tls_.client_authority.empty()) {
    options.push_back(Option(MHD_OPTION_HTTPS_MEM_TRUST, 0, tls_.client_authority.c_str()));
  }
  options.push_back(Option(MHD_OPTION_END, 0));
  return MHD_start_daemon(flags, 0, nullptr, nullptr, &OnRequest, this, MHD_OPTION_ARRAY,
                          options.data(), MHD_OPTION_END);
}

void Listener::WatchSocket() {
  socket_watch_ = loop_.Watch(socket_.Get(), [this] { has_new_ = true; });
}

void Listener::AcceptAll() {
  for (int i = 0; i < kAcceptAtOnce; ++i) {
    sockaddr_storage address{};
    socklen_t length = sizeof(address);
    UniqueFd socket(accept4(socket_.Get(), reinterpret_cast<sockaddr*>(&address), &length,
                            SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (socket) {
      Add(std::move(socket), address);
    } else if (errno == EAGAIN) {
      return;
    } else if (errno != EINTR && errno != ECONNABORTED) {
      return PauseAccepting();
    }
  }
}

// No descriptor or no memory is left: one connection goes, and the loop does not spin meanwhile.
void Listener::PauseAccepting() {
  Log(LOG_WARNING, "cannot accept a connection: %s", std::strerror(errno));
  (void)clients_.CutOne();
  loop_.Forget(socket_watch_);
  pause_ = loop_.At(EventLoop::Clock::now() + kAcceptPause, [this] {
    pause_.reset();
    WatchSocket();
  });
}

void Listener::Add(UniqueFd socket, const sockaddr_storage& address) {
  if (!clients_.MakeRoom(PeerName(address))) return;
  const std::uint64_t number = ++last_number_;
  auto client = std::make_unique<ClientConnection>(loop_, std::move(socket), address, number,
                                                   [this, number] { Continue(number); });
  client->SetDeadline(port_ == PortKind::kLocal ? HeadTime()
                                                : std::min(kHandshakeTime, request_time_));
  clients_.Add(std::move(client));
}

void Listener::Continue(std::uint64_t number) {
  ClientConnection& client = *clients_.Find(number);
  if (!client.IsWanted()) return clients_.Remove(number);
  joining_ = &client;
  const bool is_the_librarys = client.Continue(daemon_.get());
  joining_ = nullptr;
  if (!is_the_librarys) return clients_.Remove(number);
  handshakes_.push_back(number);
  due_ = EventLoop::Clock::now();
}

std::optional<std::chrono::milliseconds> Listener::Run() {
  using std::chrono::milliseconds;
  const auto now = EventLoop::Clock::now();
  // The library learns that a request was answered only by being run.
  if (!requests_.empty() || (due_ && now >= *due_)) {
    std::optional<milliseconds> wait = RunLibrary();
    for (int run = 1; run < kRuns && wait == milliseconds(0); ++run) wait = RunLibrary();
    due_.reset();
    if (wait) due_ = now + *wait;
  }
  // Only now: of those that make room none has a request that the library has not seen.
  if (std::exchange(has_new_, false)) AcceptAll();
  if (!due_) return std::nullopt;
  return std::max(std::chrono::ceil<milliseconds>(*due_ - now), milliseconds(0));
}

// What the library asks for can be relied on: a handshake that waits for its client is suspended,
// so a wait of zero means that there is something to do. The library runs when its descriptor is
// readable, when it asked to, after a connection was added or resumed, and in each turn while there
// are requests. It keeps no listening socket, so nothing else ever waits for a run.
std::optional<std::chrono::milliseconds> Listener::RunLibrary() {
  MHD_run(daemon_.get());
  SettleHandshakes();
  MHD_UNSIGNED_LONG_LONG wait = 0;
  if (MHD_get_timeout(daemon_.get(), &wait) != MHD_YES) return std::nullopt;
  return std::chrono::milliseconds(static_cast<long>(std::min(wait, kMostWait)));
}

void Listener::SettleHandshakes() {
  for (const std::uint64_t number : std::exchange(handshakes_, {})) {
    ClientConnection* client = clients_.Find(number);
    if (client != nullptr && client->Settle()) client->SetDeadline(HeadTime());
  }
}

std::chrono::seconds Listener::HeadTime() const {
  return std::min(kHeadTime, request_time_);
}

void Listener::OnConnection(void* self, MHD_Connection* connection, void** context,
                            MHD_ConnectionNotificationCode code) {
  auto& listener = *static_cast<Listener*>(self);
  if (code == MHD_CONNECTION_NOTIFY_STARTED) {
    *context = listener.joining_;
    listener.joining_->SetLibraryConnection(connection);
  } else {
    listener.clients_.Remove(static_cast<ClientConnection*>(*context)->Number());
  }
}

void* Listener::OnTarget(void* self, const char* target, MHD_Connection* connection) {
  ClientConnection& client = ClientOf(connection);
  client.SetTarget(target);
  client.SetDeadline(static_cast<Listener*>(self)->HeadTime());
  return nullptr;
}

void Listener::OnCompleted(void* self, MHD_Connection* connection, void** context,
                           MHD_RequestTerminationCode /*code*/) {
  auto& listener = *static_cast<Listener*>(self);
  ClientConnection& client = ClientOf(connection);
  const auto request = listener.requests_.find(*context);
  if (request != listener.requests_.end()) {
    client.SetRank(IsKnown(*request->second) ? ConnectionRank::kKnown : ConnectionRank::kUnknown);
    listener.requests_.erase(request);
  }
  client.Flush();
  client.SetDeadline(listener.request_time_);
}

// Called from C, so nothing may be thrown through. Called at least three times for one request:
// for its headers, for each piece of its body, at its end; once more after a suspension.
MHD_Result Listener::OnRequest(void* self, MHD_Connection* connection, const char* path,
                               const char* method, const char* version, const char* data,
                               std::size_t* size, void** context) {
  auto& listener = *static_cast<Listener*>(self);
  try {
    if (*context == nullptr) {
      Request& request = listener.Open(connection);
      *context = &request;
      return listener.Begin(request, {method, request.Client().Target(), version}, path);
    }
    Request& request = *listener.requests_.at(*context);
    if (*size == 0) return listener.Proceed(request, version);
    const std::string_view bytes(data, std::exchange(*size, 0));
    return listener.Feed(request, bytes);
  } catch (const std::exception& e) {
    Log(LOG_ERR, "a request cannot be served: %s", e.what());
    return MHD_NO;
  }
}

Request& Listener::Open(MHD_Connection* connection) {
  auto request = std::make_unique<Request>(connection, ClientOf(connection), port_);
  Request& result = *request;
  requests_.emplace(&result, std::move(request));
  return result;
}

MHD_Result Listener::Begin(Request& request, const RequestLine& line, const char* path) {
  ClientConnection& client = request.Client();
  client.SetOpen();
  client.SetDeadline(request_time_);
  if (!IsHeadWellFormed(request.Connection(), line)) {
    Reply reply = ErrorReply(webapi::kMalformedRequest);
    reply.headers.emplace_back(MHD_HTTP_HEADER_CONNECTION,
                               "close");  // what follows may be anything
    request.Answer(std::move(reply));
    return Queue(request);
  }
  server_.Begin(request, line.method, path);
  if (IsKnown(request)) client.SetRank(ConnectionRank::kServed);
  if (!request.GetReply()) return MHD_YES;
  request.receive_limit = kReadOver;
  // A body of usual size is read over and answered at its end; the connection stays good. Before a
  // longer one, one without a clear end, or one that the client holds back until it is asked for,
  // the answer comes at once.
  const bool held_back = !request.Header(MHD_HTTP_HEADER_EXPECT).empty();
  if (!held_back && request.TellsItsEnd() && request.ContentLength().value_or(0) <= kReadOver)
    return MHD_YES;
  return Queue(request);
}

MHD_Result Listener::Queue(Request& request) {
  request.queued = true;
  return QueueReply(request.Connection(), *request.GetReply());
}

MHD_Result Listener::Feed(Request& request, std::string_view data) {
  request.received += data.size();
  if (request.received > request.receive_limit + kReadOver) return MHD_NO;
  if (request.body != nullptr) request.body->Feed(data);
  return MHD_YES;
}

MHD_Result Listener::Proceed(Request& request, std::string_view version) {
  if (!request.GetReply() && !request.completed) {
    request.completed = true;
    request.Client().ClearDeadline();
    server_.Complete(request);
    if (!request.GetReply()) {
      request.Client().SetRank(ConnectionRank::kServed);
      request.Suspend();
      return MHD_YES;
    }
  }
  // A request that still waits is suspended, so this is the end of it.
  if (request.stream == nullptr) request.Client().SetDeadline(request_time_);
  const bool is_short = request.stream == nullptr && request.GetReply()->body.size() < kOnePiece;
  if (is_short && !request.IsLast(version)) request.Client().Hold();
  return Queue(request);
}

}  // namespace kalo::webapid
