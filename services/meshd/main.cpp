// meshd: the mesh service. Knows the nodes of the mesh by their heartbeats, drives the update of
// all of them and answers the mesh client library over the system bus.

#include <syslog.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

#include "host/core/log.h"
#include "platform/paths.h"
#include "services/meshd/bus_service.h"
#include "services/meshd/mesh_service.h"
#include "services/meshd/signal_watch.h"
#include "services/meshd/web_node_api.h"

namespace {

using kalo::meshd::MeshNode;

// The supervisor's log is not the system's: an end that somebody must look at goes to both.
int Complain(const char* what, const std::exception& e) {
  kalo::Log(LOG_ERR, "%s: %s", what, e.what());
  std::fprintf(stderr, "meshd: %s: %s\n", what, e.what());
  return 1;
}

// There is no other way out of the loop than this one. Whenever the service is killed, what it
// keeps is whole; so it ends at once when the way is barred.
void LeaveLoop(sdbus::IConnection& connection) {
  try {
    connection.leaveEventLoop();
  } catch (const std::exception& e) {
    std::_Exit(Complain("cannot end in order", e));
  }
}

int Serve(kalo::meshd::MeshServiceOptions options) {
  kalo::meshd::BlockEndSignals();
  const std::unique_ptr<sdbus::IConnection> connection = sdbus::createSystemBusConnection();
  const auto make_api = [](const MeshNode& node) {
    return std::make_unique<kalo::meshd::WebNodeApi>(node);
  };
  const std::vector<MeshNode> nodes = kalo::meshd::ReadNodeList(KALO::paths::kMeshNodes);
  std::atomic<bool> is_broken = false;
  options.on_tls_unusable = [&] {
    is_broken = true;
    LeaveLoop(*connection);
  };
  kalo::meshd::MeshService service(nodes, make_api, options);
  const kalo::meshd::BusService bus(*connection, service);
  const kalo::meshd::SignalWatch signals([&connection] { LeaveLoop(*connection); });
  kalo::Log(LOG_NOTICE, "serves a mesh of %zu nodes", nodes.size());
  connection->enterEventLoop();
  if (is_broken) throw std::runtime_error("nodes can be called by a new process only");
  kalo::Log(LOG_NOTICE, "ends");
  return 0;
}

int Run(int argc, char** argv) {
  CLI::App app("The mesh service: watches the mesh's nodes and drives their update.", "meshd");
  int interval_ms = 1000;
  app.add_option("--interval-ms", interval_ms, "Time between two heartbeats of a node")
      ->check(CLI::Range(10, 60000))
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);

  openlog("meshd", LOG_PID, LOG_DAEMON);
  kalo::meshd::MeshServiceOptions options;
  options.interval = std::chrono::milliseconds(interval_ms);
  return Serve(std::move(options));
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const sdbus::Error& e) {
    return Complain("the system bus cannot be used", e);
  } catch (const std::exception& e) {
    return Complain("cannot serve", e);
  }
}
