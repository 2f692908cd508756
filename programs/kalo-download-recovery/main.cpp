// kalo-download-recovery: the web API server runs it after each background task that ended,
// after a worker that died, and when it starts itself (webapi/mesh-upgrade.json names it).

#include <syslog.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include "host/core/file_lock.h"
#include "host/core/log.h"
#include "host/update/download/left_files.h"
#include "host/update/download/recovery.h"
#include "host/update/node_calls.h"
#include "platform/mesh/client.h"
#include "platform/paths.h"

namespace {

// Where the module and the platform beneath it write files whole.
void SweepAll() {
  namespace paths = KALO::paths;
  for (const char* file : {paths::kDownloadProgress, paths::kConfiguration, paths::kNotifications,
                           paths::kFullPatchLocator, paths::kUpdateHistory}) {
    kalo::download::SweepLeftFiles(std::filesystem::path(file).parent_path());
  }
  for (const char* folder : {paths::kFeedState, paths::kStagedPatch, paths::kSlots}) {
    kalo::download::SweepLeftFiles(folder);
  }
}

// Whether the last download is broken and nothing copies patches to nodes. To be asked under the
// lock of rounds: who copies patches later cleans the nodes first, and waits for that lock.
bool IsToBeCleaned() {
  return kalo::download::IsLastDownloadBroken() && kalo::FileLock::TryTake(KALO::paths::kPatchLock);
}

std::vector<kalo::NodeAddress> FindNodes() {
  const auto infos = KALO::MESH::SDK::Client::MeshClientFactory::GetClient()->GetNodeInfos();
  if (infos.code != 0) throw std::runtime_error("the mesh service does not list the nodes");
  std::vector<kalo::NodeAddress> nodes;
  for (const auto& [id, info] : infos.nodes) {
    nodes.push_back({static_cast<std::int32_t>(id), info.address});
  }
  return nodes;
}

// Asks nodes to drop their patches.
// @return those that did not confirm; none if there is nothing to clean any more.
std::vector<kalo::NodeAddress> Clean(const std::vector<kalo::NodeAddress>& nodes) {
  constexpr std::chrono::milliseconds kDeadline{5000};
  constexpr std::chrono::milliseconds kPatience{30000};
  const auto round = kalo::FileLock::TakeWithin(KALO::paths::kNodeRoundLock, kPatience);
  if (!round) throw std::system_error(errno, std::generic_category(), KALO::paths::kNodeRoundLock);
  if (!IsToBeCleaned()) return {};
  const auto answers = kalo::CallNodes(nodes, {"KALO.Core.Upgrade.Patch", 1, "clean"}, kDeadline);
  std::vector<kalo::NodeAddress> left;
  for (const kalo::NodeAddress& node : nodes) {
    if (!answers.at(node.node_id).IsSuccess()) left.push_back(node);
  }
  return left;
}

// A broken download leaves patches on some nodes only. A node that is busy with its patch is asked
// again; one that cannot be reached keeps it, and the mesh service starts no update until then.
void CleanAfterBrokenDownload() {
  constexpr int kRounds = 5;
  if (!IsToBeCleaned()) return;  // mostly
  std::vector<kalo::NodeAddress> nodes = FindNodes();
  for (int round = 0; round < kRounds && !nodes.empty(); ++round) {
    if (round > 0) std::this_thread::sleep_for(std::chrono::seconds(1));
    nodes = Clean(nodes);
  }
  for (const kalo::NodeAddress& node : nodes) {
    kalo::Log(LOG_ERR, "node %d does not drop its patch of a broken download", node.node_id);
  }
}

}  // namespace

int main() {
  openlog("kalo-download-recovery", 0, LOG_DAEMON);
  try {
    kalo::download::RecoverDownload();
    SweepAll();
    CleanAfterBrokenDownload();
    return 0;
  } catch (const std::exception& e) {
    kalo::Log(LOG_ERR, "%s", e.what());
    return 1;
  }
}
