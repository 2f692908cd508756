// node-init: the first process of a node's box. Makes the folders that a boot finds, shows the
// firmware of the chosen slot and keeps the node's services running. Ends with 0 when the node was
// switched off and with 77 when it wants to be started again.

#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>

#include "box/layout.h"
#include "box/node_init/boot_folders.h"
#include "box/node_init/bus_configuration.h"
#include "box/node_init/firmware_mount.h"
#include "box/node_init/node_init.h"
#include "host/core/file_io.h"
#include "services/node/slots.h"

namespace {

constexpr int kCannotRun = 1;

int Boot(const kalo::box::NodeSetup& setup) {
  umask(022);
  kalo::box::MakeBootFolders();
  std::string boot_id = kalo::box::WriteBootId();
  kalo::box::MountFirmware(kalo::slots::ChooseAtBoot());
  if (!kalo::WriteFileAtomic(kalo::box::kBusConfiguration, kalo::box::BusConfiguration(), 0644)) {
    throw std::runtime_error("cannot write the bus configuration");
  }
  return kalo::box::NodeInit(std::move(boot_id), setup).Run();
}

int Run(int argc, char** argv) {
  CLI::App app("First process of a node's box");
  kalo::box::NodeSetup setup;
  app.add_option("--listen-fd", setup.listen_fd, "listening socket for the web API server");
  app.add_option("--auto-check", setup.auto_check_s, "seconds between looks for updates");
  app.add_option("--auto-upgrade", setup.auto_upgrade_s, "seconds between automatic upgrades");
  CLI11_PARSE(app, argc, argv);
  // It empties /tmp and /run and ends every process that it sees: never outside a box.
  if (getpid() != 1 || !std::filesystem::exists(kalo::box::kBoxFolder)) {
    throw std::runtime_error("only runs as the first process of a node's box");
  }
  return Boot(setup);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& e) {
    std::cerr << "node-init: " << e.what() << "\n";
    return kCannotRun;
  }
}
