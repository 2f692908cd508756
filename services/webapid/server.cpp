#include "services/webapid/server.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "platform/paths.h"
#include "services/webapid/listen_socket.h"

namespace kalo::webapid {
namespace {

constexpr const char* kSessions = "/var/lib/kalo/sessions";
constexpr const char* kWorkerProgram = "/usr/kalo/sbin/webapid-worker";
constexpr const char* kLoginProgram = "/usr/kalo/sbin/webapid-login";
constexpr const char* kAdminCertificate = "/etc/kalo/tls/server.crt";
constexpr const char* kAdminKey = "/etc/kalo/tls/server.key";
constexpr std::size_t kLargestPem = std::size_t{256} << 10;

UniqueFd TakeSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGTERM, SIGINT, SIGCHLD}) sigaddset(&set, signal);
  if (sigprocmask(SIG_BLOCK, &set, nullptr) != 0 || signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
    throw std::system_error(errno, std::generic_category(), "signals");
  }
  UniqueFd fd(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!fd) throw std::system_error(errno, std::generic_category(), "signalfd");
  return fd;
}

// Every listener may be full; uploads and workers need descriptors besides.
void AllowDescriptors(unsigned connections) {
  constexpr rlim_t kListeners = 4;
  constexpr rlim_t kOthers = 256;
  const rlim_t needed = kListeners * connections + kOthers;
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= needed) return;
  limit.rlim_cur = std::min(needed, limit.rlim_max);
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur < needed) {
    Log(LOG_WARNING, "%u connections a port need %lu descriptors; the system allows %lu",
        connections, static_cast<unsigned long>(needed),
        static_cast<unsigned long>(limit.rlim_max));
  }
}

std::string ReadPem(const std::string& path) {
  std::optional<std::string> text = ReadFile(path, kLargestPem);
  if (!text) throw std::system_error(errno, std::generic_category(), path);
  return std::move(*text);
}

TlsFiles ReadTls(PortKind port) {
  if (port == PortKind::kLocal) return {};
  if (port == PortKind::kAdmin) return {ReadPem(kAdminCertificate), ReadPem(kAdminKey), ""};
  return {ReadPem(KALO::paths::kNodeCertificate), ReadPem(KALO::paths::kNodeKey),
          ReadPem(KALO::paths::kMeshAuthority)};
}

}  // namespace

Server::Server(const Configuration& configuration, int inherited)
    : configuration_(configuration),
      signals_(TakeSignals()),
      rows_(ReadRowTable(KALO::paths::kModules)),
      uploads_(KALO::paths::kUploads),
      page_(KALO::paths::kPage),
      host_names_(ReadPem(kAdminCertificate), configuration.host_names),
      users_(KALO::paths::kUsers),
      sessions_({kSessions, configuration.session_idle, configuration.session_absolute,
                 [] { return static_cast<std::int64_t>(std::time(nullptr)); }}),
      recovery_(children_, rows_.RecoveryPrograms()),
      logins_(loop_, children_, kLoginProgram),
      admin_workers_(loop_, children_,
                     {kWorkerProgram, configuration.admin_workers, [this] { recovery_.Run(); }}),
      mesh_workers_(loop_, children_,
                    {kWorkerProgram, configuration.mesh_workers, [this] { recovery_.Run(); }}),
      events_(loop_, admin_workers_),
      authentication_(sessions_, users_, logins_),
      front_({configuration_, host_names_, rows_, uploads_, page_, authentication_, admin_workers_,
              mesh_workers_, events_}) {
  AllowDescriptors(configuration_.connections);
  AddListener(Listen(configuration_.address, configuration_.admin_port), PortKind::kAdmin);
  AddListener(Listen(configuration_.address, configuration_.mesh_port), PortKind::kMesh);
  if (inherited >= 0) AddListener(InheritListener(inherited), PortKind::kAdmin);
  AddLocalListener();
  // Whoever has the ports has the uploads: those of a server that runs already are left alone.
  if (!uploads_.Prepare()) {
    Log(LOG_ERR, "%s cannot be used: %s", KALO::paths::kUploads, std::strerror(errno));
  }
}

// Without it root signs in as everybody does.
void Server::AddLocalListener() {
  try {
    AddListener(ListenLocal(KALO::paths::kLocalSocket), PortKind::kLocal);
  } catch (const std::system_error& e) {
    Log(LOG_ERR, "%s", e.what());
  }
}

void Server::AddListener(UniqueFd socket, PortKind port) {
  listeners_.emplace_back(loop_, front_, std::move(socket), port, ReadTls(port), configuration_);
}

std::optional<std::chrono::milliseconds> Server::Turn() {
  std::optional<std::chrono::milliseconds> wait;
  for (Listener& listener : listeners_) {
    const auto mine = listener.Run();
    if (mine) wait = wait ? std::min(*wait, *mine) : *mine;
  }
  return wait;
}

void Server::OnSignal() {
  signalfd_siginfo info{};
  while (read(signals_.Get(), &info, sizeof(info)) == static_cast<ssize_t>(sizeof(info))) {
    if (info.ssi_signo == static_cast<unsigned>(SIGCHLD)) {
      children_.Reap();
    } else {
      loop_.Stop();
    }
  }
}

void Server::Run() {
  // Background children of a worker that has gone come to this process.
  if (prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0) Log(LOG_WARNING, "not a sub-reaper");
  children_.OnStranger([this](pid_t pid) {
    Log(LOG_INFO, "background task %d ended", pid);
    recovery_.Run();
  });
  const EventLoop::WatchId signals = loop_.Watch(signals_.Get(), [this] { OnSignal(); });
  loop_.SetTurn([this] { return Turn(); });
  recovery_.Run();
  Log(LOG_NOTICE, "serving %s, ports %d and %d", configuration_.address.c_str(),
      configuration_.admin_port, configuration_.mesh_port);
  loop_.Run();
  loop_.Forget(signals);
  End();
}

// Every waiting request gets its answer before the listeners go, and no other one begins to wait:
// the library must not be stopped while a connection is suspended.
void Server::End() {
  Log(LOG_NOTICE, "ending");
  front_.Close();
  logins_.Stop();
  admin_workers_.Stop();
  mesh_workers_.Stop();
  events_.Stop();
  (void)Turn();
  (void)Turn();
}

}  // namespace kalo::webapid
