#include "services/webapid/listener.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "host/core/log.h"

namespace kalo::webapid {
namespace {

// The library clears it before each request; headers need far less.
constexpr std::size_t kConnectionMemory = std::size_t{16} << 10;
constexpr MHD_UNSIGNED_LONG_LONG kMostWait = 60000;  // ms
constexpr int kRuns = 4;                             // in one turn of the loop
constexpr int kMostCircles = 8;
constexpr int kMostCirclesWhileSending = 256;  // each may send a piece of a long answer
constexpr std::chrono::milliseconds kCircleWait{10};
// What a refused request may still send so that it gets its answer on a healthy connection: closing
// one on which bytes still come makes the client's system drop the answer.
constexpr std::uint64_t kReadOver = std::uint64_t{8} << 20;
// With its head it fits into one TLS record.
constexpr std::size_t kOnePiece = std::size_t{8} << 10;
constexpr const char* kPriorities = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";

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
      connection_limit_(configuration.connections),
      daemon_(Start(socket.Get())) {
  if (daemon_ == nullptr) {
    throw std::runtime_error("cannot start the HTTPS server; are certificate and key good?");
  }
  (void)socket.Release();  // the library closes it
  const MHD_DaemonInfo* info = MHD_get_daemon_info(daemon_.get(), MHD_DAEMON_INFO_EPOLL_FD);
  watch_ = loop_.Watch(info->epoll_fd, [this] { ready_ = true; });
}

Listener::~Listener() {
  loop_.Forget(watch_);
}

MHD_Daemon* Listener::Start(int socket) {
  std::vector<MHD_OptionItem> options = {
      Option(MHD_OPTION_EXTERNAL_LOGGER, Callback(&LogLibrary)),
      Option(MHD_OPTION_UNESCAPE_CALLBACK, Callback(&Unescape)),
      Option(MHD_OPTION_LISTEN_SOCKET, socket),
      Option(MHD_OPTION_NOTIFY_CONNECTION, Callback(&OnConnection), this),
      Option(MHD_OPTION_NOTIFY_COMPLETED, Callback(&OnCompleted), this),
      Option(MHD_OPTION_CONNECTION_LIMIT, connection_limit_),
      // Nobody shuts out all others.
      Option(MHD_OPTION_PER_IP_CONNECTION_LIMIT, std::max(connection_limit_ / 2, 1U)),
      Option(MHD_OPTION_CONNECTION_TIMEOUT, request_time_.count()),
      Option(MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory),
      Option(MHD_OPTION_STRICT_FOR_CLIENT, 1),
  };
  unsigned flags = MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG;
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

std::optional<std::chrono::milliseconds> Listener::Run() {
  using std::chrono::milliseconds;
  const auto now = EventLoop::Clock::now();
  // That a request was answered meanwhile the library learns only by being run.
  const bool is_due = due_ && now >= *due_;
  if (std::exchange(ready_, false) || !requests_.empty() || is_due) {
    std::optional<milliseconds> wait;
    for (int run = 0; run < kRuns && (run == 0 || wait == milliseconds(0)); ++run) wait = RunOnce();
    due_.reset();
    if (wait) due_ = now + *wait;
  }
  if (!due_) return std::nullopt;
  return std::max(std::chrono::ceil<milliseconds>(*due_ - now), milliseconds(0));
}

// The library takes a handshake whose client says nothing more for one that can go on, and asks to
// be run again and again. What really comes it hears of otherwise; what it has got already, and has
// told nobody of, may wait that long.
std::optional<std::chrono::milliseconds> Listener::RunOnce() {
  moved_ = false;
  MHD_run(daemon_.get());
  MHD_UNSIGNED_LONG_LONG wait = 0;
  if (MHD_get_timeout(daemon_.get(), &wait) != MHD_YES) return std::nullopt;
  circles_ = wait == 0 && !moved_ ? circles_ + 1 : 0;
  if (circles_ > (IsSending() ? kMostCirclesWhileSending : kMostCircles)) return kCircleWait;
  return std::chrono::milliseconds(static_cast<long>(std::min(wait, kMostWait)));
}

bool Listener::IsSending() const {
  return std::any_of(requests_.begin(), requests_.end(), [](const auto& entry) {
    return entry.second->queued && entry.second->stream == nullptr;
  });
}

void Listener::OnConnection(void* self, MHD_Connection* connection, void** /*context*/,
                            MHD_ConnectionNotificationCode code) {
  auto& listener = *static_cast<Listener*>(self);
  listener.moved_ = true;
  if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
    listener.clients_.erase(connection);
    return;
  }
  auto client = std::make_unique<ClientConnection>(listener.loop_, connection);
  client->SetDeadline(listener.request_time_);
  listener.clients_.insert_or_assign(connection, std::move(client));
}

void Listener::OnCompleted(void* self, MHD_Connection* connection, void** context,
                           MHD_RequestTerminationCode /*code*/) {
  auto& listener = *static_cast<Listener*>(self);
  listener.moved_ = true;
  listener.requests_.erase(*context);
  const auto client = listener.clients_.find(connection);
  if (client == listener.clients_.end()) return;
  client->second->Flush();
  client->second->SetDeadline(listener.request_time_);
}

// Called from C, so nothing may be thrown through. Called at least three times for one request:
// for its headers, for each piece of its body, at its end; once more after a suspension.
MHD_Result Listener::OnRequest(void* self, MHD_Connection* connection, const char* path,
                               const char* method, const char* version, const char* data,
                               std::size_t* size, void** context) {
  auto& listener = *static_cast<Listener*>(self);
  listener.moved_ = true;
  try {
    if (*context == nullptr) {
      Request& request = listener.Open(connection);
      *context = &request;
      return listener.Begin(request, method, path);
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
  auto request = std::make_unique<Request>(connection, *clients_.at(connection), port_);
  Request& result = *request;
  requests_.emplace(&result, std::move(request));
  return result;
}

MHD_Result Listener::Begin(Request& request, const char* method, const char* path) {
  server_.Begin(request, method, path);
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
