// kalo-box-launcher: runs the nodes of a mesh. "kalo-box up" starts it inside a box with a network
// of its own; nobody else has a reason to.

#include <CLI/CLI.hpp>
#include <exception>
#include <filesystem>
#include <iostream>

#include "box/launcher/launcher.h"
#include "box/mesh_plan.h"

namespace fs = std::filesystem;

namespace {

// The nodes' storage starts empty with each mesh: it lies in memory.
void InstallFirstFirmware(const kalo::box::Layout& layout, int nodes) {
  for (const kalo::box::PlannedNode& node : kalo::box::PlanMesh(nodes)) {
    const fs::path slots = layout.Node(node.id) / "volume1/@slots";
    fs::create_directories(slots);
    fs::copy(layout.Firmware() / node.model, slots / "a",
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    const fs::path version = layout.FirstVersion(node.id);
    if (fs::exists(version)) {
      fs::copy_file(version, slots / "a/VERSION", fs::copy_options::overwrite_existing);
    }
    fs::create_symlink("a", slots / "current");
  }
}

int Run(int argc, char** argv) {
  CLI::App app("Runs the nodes of a mesh inside their common box");
  std::string state;
  std::string build;
  int nodes = 0;
  int listen_fd = -1;
  std::uint64_t tmp_mib = 0;
  int auto_check_s = 0;
  int auto_upgrade_s = 0;
  int feed_rate_kib = 0;
  app.add_option("--state", state)->required();
  app.add_option("--build", build)->required();
  app.add_option("--nodes", nodes)->required();
  app.add_option("--tmp-mib", tmp_mib)->required();
  app.add_option("--auto-check", auto_check_s);
  app.add_option("--auto-upgrade", auto_upgrade_s);
  app.add_option("--feed-rate", feed_rate_kib);
  app.add_option("--listen-fd", listen_fd);
  CLI11_PARSE(app, argc, argv);
  const kalo::box::Layout layout(state);
  InstallFirstFirmware(layout, nodes);
  const kalo::box::NodeBox::Setup setup{layout,       build,          tmp_mib << 20,
                                        auto_check_s, auto_upgrade_s, listen_fd};
  kalo::box::Launcher(setup, nodes, feed_rate_kib).Run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& e) {
    std::cerr << "kalo-box-launcher: " << e.what() << "\n";
    return 1;
  }
}
