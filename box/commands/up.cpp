#include "box/commands/up.h"

#include <fcntl.h>
#include <json/value.h>
#include <json/writer.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "box/commands/detach.h"
#include "box/commands/listen_address.h"
#include "box/commands/running_mesh.h"
#include "box/layout.h"
#include "box/setup/mesh_maker.h"
#include "box/setup/put_file.h"
#include "host/core/file_lock.h"

namespace kalo::box {
namespace fs = std::filesystem;
namespace {

constexpr std::chrono::seconds kHealthDeadline{90};

struct Options {
  std::string state;
  std::string build;
  std::string listen = "127.0.0.1:0";
  std::string patch_keys;
  std::string first_version = "VXM 1.4.0-76000";
  std::vector<std::string> node_versions;
  int auto_check_s = 0;
  int auto_upgrade_s = 0;
  int feed_rate_kib = 0;
  int nodes = 4;
  std::uint64_t disk_mib = 256;
  std::uint64_t tmp_mib = 64;
  bool foreground = false;
  bool die_with_parent = false;
};

std::string Describe(const Layout& layout, const NewMesh& mesh, const Listening& listening) {
  Json::Value box(Json::objectValue);
  box["address"] = "https://" + listening.address + ":" + std::to_string(listening.port);
  box["ca"] = layout.ClientCa().string();
  box["user"] = mesh.administrator.name;
  box["password"] = mesh.administrator.password;
  box["feed"] = layout.Feed().string();
  box["pid"] = static_cast<Json::Int64>(getpid());
  for (const PlannedNode& node : mesh.nodes) {
    Json::Value entry(Json::objectValue);
    entry["id"] = node.id;
    entry["name"] = node.name;
    entry["model"] = node.model;
    entry["address"] = node.address;
    entry["root"] = layout.Node(node.id).string();
    entry["console"] = layout.NodeConsole(node.id).string();
    box["nodes"].append(entry);
  }
  return box.toStyledString();
}

// Removes the description when the mesh ends: its presence means that the mesh answers.
class DescriptionFile {
 public:
  DescriptionFile(const Layout& layout, const std::string& text) : path_(layout.Description()) {
    PutFile(path_, text, 0600);
  }
  DescriptionFile(const DescriptionFile&) = delete;
  DescriptionFile& operator=(const DescriptionFile&) = delete;
  ~DescriptionFile() {
    std::error_code ignored;
    fs::remove(path_, ignored);
  }

 private:
  fs::path path_;
};

std::map<int, std::string> ReadNodeVersions(const std::vector<std::string>& words) {
  std::map<int, std::string> versions;
  for (const std::string& word : words) {
    const std::size_t end = word.find('=');
    int id = -1;
    const auto [stop, error] = std::from_chars(word.data(), word.data() + word.size(), id);
    if (error != std::errc() || end == std::string::npos || stop != word.data() + end) {
      throw std::runtime_error("\"" + word + "\": NODE=VERSION is wanted");
    }
    versions[id] = word.substr(end + 1);
  }
  return versions;
}

void Run(const Options& options, const Layout& layout, Detached& detached) {
  fs::create_directories(layout.State());
  const auto lock = FileLock::TryTake(layout.Lock());
  if (!lock) throw std::runtime_error("a mesh runs already in " + layout.State().native());
  ClearState(layout);
  const Listening listening = Listen(options.listen);
  const fs::path keys =
      options.patch_keys.empty() ? layout.State() / "keys" : fs::absolute(options.patch_keys);
  const fs::path build = fs::canonical(options.build);
  const NewMesh mesh = MakeMesh(layout, build, options.nodes, PatchKeys(keys),
                                options.first_version, ReadNodeVersions(options.node_versions));
  RunningMesh running(layout,
                      {build, options.nodes, options.disk_mib, options.tmp_mib,
                       options.auto_check_s, options.auto_upgrade_s, options.feed_rate_kib},
                      listening.fd.Get());
  if (!running.WaitUntilHealthy(kHealthDeadline)) {
    throw std::runtime_error("the mesh did not come up; see " + layout.Log().native() +
                             " and the files \"console\" below " + layout.Nodes().native());
  }
  const DescriptionFile description(layout, Describe(layout, mesh, listening));
  std::cout << "https://" << listening.address << ":" << listening.port << std::endl;
  detached.SayReady();
  running.Run();
}

int Up(const Options& options) {
  const Layout layout(fs::weakly_canonical(fs::absolute(options.state)));
  if (options.die_with_parent) prctl(PR_SET_PDEATHSIG, SIGTERM);
  Detached detached;
  if (!options.foreground) {
    if (const auto status = detached.Fork()) return *status;
  }
  try {
    Run(options, layout, detached);
    return 0;
  } catch (const std::exception& e) {
    std::cerr << "kalo-box: " << e.what() << "\n";
    return 1;
  }
}

}  // namespace

void AddUp(CLI::App& app, int& status) {
  const auto options = std::make_shared<Options>();
  CLI::App* up = app.add_subcommand("up", "Make a mesh in a folder and run it");
  up->add_option("--state", options->state, "Folder of the mesh; a new mesh replaces an old one")
      ->required();
  up->add_option("--build", options->build, "Build folder whose programs the nodes run")
      ->required()
      ->check(CLI::ExistingDirectory);
  up->add_option("--nodes", options->nodes, "Number of nodes, the CAP included")
      ->check(CLI::Range(1, kMaxNodes));
  up->add_option("--listen", options->listen, "Where this machine reaches the mesh; port 0: any");
  up->add_option("--patch-keys", options->patch_keys,
                 "Folder with the key pair that signs patches; made when missing");
  up->add_option("--disk-mib", options->disk_mib, "Size of each node's storage")
      ->check(CLI::Range(16, 65536));
  up->add_option("--tmp-mib", options->tmp_mib, "Size of each node's /tmp")
      ->check(CLI::Range(1, 65536));
  up->add_option("--first-version", options->first_version, "What all nodes run at first")
      ->capture_default_str();
  up->add_option("--node-version", options->node_versions,
                 "NODE=VERSION: what one node runs at first instead; may be given several times");
  up->add_option("--auto-check", options->auto_check_s,
                 "Let the CAP look for updates by itself, every so many seconds")
      ->check(CLI::Range(1, 86400));
  up->add_option("--auto-upgrade", options->auto_upgrade_s,
                 "Let the CAP install what it finds by itself, every so many seconds")
      ->check(CLI::Range(1, 86400));
  up->add_option("--feed-rate", options->feed_rate_kib,
                 "KiB a second that the update feed gives, as if the line were slow")
      ->check(CLI::Range(1, 1 << 30));
  up->add_flag("--foreground", options->foreground, "Stay until the mesh ends");
  up->add_flag("--die-with-parent", options->die_with_parent,
               "With --foreground: end the mesh when the caller ends");
  up->callback([options, &status] { status = Up(*options); });
}

}  // namespace kalo::box
