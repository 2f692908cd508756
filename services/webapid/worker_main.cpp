// webapid-worker: loads the modules and serves one request at a time, which it gets from webapid
// over descriptor 3. A program of its own, so that it never held a client's socket or a TLS key.

#include <fcntl.h>
#include <sys/socket.h>
#include <syslog.h>

#include <cstring>
#include <exception>
#include <iostream>
#include <string_view>

#include "host/core/log.h"
#include "host/core/unique_fd.h"
#include "host/update/tls_library.h"
#include "host/webapi/api_registry.h"
#include "host/webapi/error_codes.h"
#include "host/webapi/module_description.h"
#include "host/webapi/module_error.h"
#include "host/webapi/module_loader.h"
#include "platform/paths.h"
#include "services/webapid/error_sentences.h"
#include "services/webapid/fork_watch.h"
#include "services/webapid/request_runner.h"
#include "services/webapid/worker_channel.h"

namespace kalo::webapid {
namespace {

constexpr int kChannel = 3;
constexpr int kUsage = 2;

// A module that cannot be loaded costs its own rows, not those of the others.
void LoadModules(webapi::ApiRegistry& registry) {
  const webapi::ModuleFolder folder = webapi::ReadModuleFolder(KALO::paths::kModules);
  for (const std::string& error : folder.errors) Log(LOG_ERR, "%s", error.c_str());
  for (const webapi::ModuleDescription& module : folder.modules) {
    try {
      registry.Add(webapi::LoadModule(module.library), module.library);
    } catch (const webapi::ModuleError& e) {
      Log(LOG_ERR, "%s", e.what());
    }
  }
}

bool SendAnswer(int channel, bool retiring, const std::string& answer) {
  const std::uint32_t flags = retiring ? kRetiring : 0;
  if (SendMessage(channel, flags, answer)) return true;
  Log(LOG_ERR, "an answer of %zu bytes cannot be sent: %s", answer.size(), std::strerror(errno));
  return SendMessage(channel, flags, ErrorEnvelope(webapi::kGeneralFailure));
}

int Serve(const UniqueFd& channel) {
  webapi::ApiRegistry registry;
  LoadModules(registry);
  webapi::InstallApiRegistry(&registry);
  const ForkWatch forks(channel.Get());
  ChannelMessage request;
  while (ReceiveMessage(channel.Get(), request) == Received::kMessage) {
    const RunResult result = RunRequest(registry, forks, request.body);
    // Modules call nodes with TLS, and the first worker lives as long as the server.
    const bool retiring = forks.Forked() || result.row_missing || !IsTlsUsable();
    if (!SendAnswer(channel.Get(), retiring, result.envelope) || retiring) break;
  }
  webapi::InstallApiRegistry(nullptr);
  return 0;
}

bool IsChannel(int fd) {
  int type = 0;
  socklen_t size = sizeof(type);
  return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_SEQPACKET;
}

int Main(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == "--version") {
    std::cout << "webapid-worker " KALO_VERSION "\n";
    return 0;
  }
  if (argc != 1 || !IsChannel(kChannel)) {
    std::cerr << "webapid-worker is started by webapid, with its channel as descriptor 3.\n";
    return kUsage;
  }
  const UniqueFd channel(kChannel);
  // The start needed it inheritable; programs that modules start must not have it.
  if (fcntl(kChannel, F_SETFD, FD_CLOEXEC) != 0) return 1;
  openlog("webapid-worker", 0, LOG_USER);
  return Serve(channel);
}

}  // namespace
}  // namespace kalo::webapid

int main(int argc, char** argv) {
  try {
    return kalo::webapid::Main(argc, argv);
  } catch (const std::exception& e) {
    kalo::Log(LOG_ERR, "%s", e.what());
    return 1;
  }
}
