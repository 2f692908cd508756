// webapid: the web API server. This is its front process; webapid-worker runs the modules.

#include <sysexits.h>
#include <syslog.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "host/core/log.h"
#include "host/core/object_reader.h"
#include "platform/paths.h"
#include "services/webapid/configuration.h"
#include "services/webapid/server.h"

namespace {

constexpr int kUsage = 2;

int Fail(const std::exception& e, int status) {
  kalo::Log(LOG_ERR, "%s", e.what());
  std::cerr << "webapid: " << e.what() << "\n";
  return status;
}

int Serve(int inherited) {
  openlog("webapid", 0, LOG_DAEMON);
  kalo::webapid::Server server(kalo::webapid::ReadConfiguration(KALO::paths::kServerConfiguration),
                               inherited);
  server.Run();
  return 0;
}

int Main(int argc, char** argv) {
  CLI::App app("Serves the web API of this node; configured by /etc/kalo/webapid.json.", "webapid");
  app.set_version_flag("--version", "webapid " KALO_VERSION);
  int inherited = -1;
  app.add_option("--listen-fd", inherited,
                 "descriptor of a listening socket that administrators reach the server by, too")
      ->check(CLI::Range(3, 1 << 20));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : kUsage;
  }
  return Serve(inherited);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const kalo::FormatError& e) {
    return Fail(e, EX_CONFIG);
  } catch (const std::exception& e) {
    return Fail(e, 1);
  }
}
