#include "programs/kalomeshupgrade/equal_update.h"

#include <poll.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "host/core/folder.h"
#include "host/core/log.h"
#include "host/update/download/fetch_patch.h"
#include "host/update/node_client.h"
#include "platform/core/file.h"
#include "platform/core/key_value.h"
#include "platform/mesh/client.h"
#include "platform/paths.h"
#include "platform/update/update_util.h"
#include "programs/kalomeshupgrade/late_start.h"

namespace kalo::equal {
namespace {

namespace Client = KALO::MESH::SDK::Client;
namespace paths = KALO::paths;
using KALO::MESH::SDK::Response;
using KALO::MESH::SDK::Upgrade::UpdateNode;
using KALO::MESH::SDK::Upgrade::UpdateUtil;

constexpr int kPercentWhenHandedOut = 30;  // the rest is the mesh service's
constexpr std::chrono::milliseconds kLook{1000};
constexpr int kMostMissedLooks = 60;
constexpr std::uint32_t kCodeMask = 0xFFFF;

void WriteProgress(const char* step, int percent) {
  const std::string number = std::to_string(percent);
  if (KLIBCFileSetKeyValue(paths::kUpgradeProgress, "step", step, 0) < 0 ||
      KLIBCFileSetKeyValue(paths::kUpgradeProgress, "percent", number.c_str(), 0) < 0) {
    Log(LOG_ERR, "%s: %s", paths::kUpgradeProgress, std::strerror(errno));
  }
}

std::vector<UpdateNode> FetchNodes() {
  const auto client = Client::MeshClientFactory::GetClient();
  const auto infos = client->GetNodeInfos();
  const auto access = client->GetRepeaterAccessInfos();
  if (infos.code != 0 || access.code != 0) {
    throw EqualUpdateError("the mesh service does not tell which nodes there are");
  }
  return UpdateNode::ToUpdateNodes(infos.nodes, access.nodes);
}

// A bus that is away for a while is like a service that is.
Client::SystemUpdateProgress AskProgress() {
  try {
    return Client::MeshClientFactory::GetClient()->GetSystemUpdateProgress();
  } catch (const std::exception& e) {
    Log(LOG_WARNING, "%s", e.what());
    Client::SystemUpdateProgress none;
    none.code = kCodeMask;
    return none;
  }
}

Client::SystemUpdateProgress AskProgressLater() {
  std::this_thread::sleep_for(kLook);
  return AskProgress();
}

void EmptyStore(const char* folder) {
  if (KALOFSMkdirP(folder, 0, 1, -1, -1) < 0 || !RemoveContents(folder)) {
    throw EqualUpdateError(std::string(folder) + ": " + std::strerror(errno));
  }
}

}  // namespace

void EqualUpdate::Run() {
  const std::vector<WantedPatch> patches = ReadWantedPatches();
  if (patches.empty()) throw EqualUpdateError("the last check found no node that lags behind");
  std::optional<FileLock> lock = FileLock::TryTake(paths::kPatchLock);
  if (!lock) throw EqualUpdateError("a download or an upload of patches is under way");
  try {
    nodes_ = FetchNodes();
  } catch (...) {
    WriteProgress("failed", 0);
    throw;
  }
  CheckTargets(patches, nodes_);  // before anything changes: a download may be ready to install
  WriteProgress("upgrading", 0);
  try {
    // What was downloaded before goes from the nodes now.
    unlink(paths::kDownloadProgress);
    HandOut(patches);
    ThrowIfStopAsked();
    const auto client = Client::MeshClientFactory::GetClient();
    const auto code = static_cast<std::uint16_t>(client->StartSystemUpdate() & kCodeMask);
    if (code != 0 && !RunsAllTheSame(code, AskProgressLater)) {
      throw EqualUpdateError("the mesh service does not start the update: " +
                             Client::ErrorCodeToSemanticString(code));
    }
  } catch (const Stopped&) {
    TakeBack("canceled");
    throw;
  } catch (...) {
    TakeBack("failed");
    throw;
  }
  lock.reset();
  Follow();
}

void EqualUpdate::HandOut(const std::vector<WantedPatch>& patches) {
  for (const WantedPatch& patch : patches) {
    for (const ModelGroup& group : patch.groups) steps_ += 1 + static_cast<int>(group.ids.size());
  }
  CleanNodes();
  EmptyStore(paths::kFullStore);
  EmptyStore(paths::kNanoStore);
  for (const WantedPatch& patch : patches) {
    for (const ModelGroup& group : patch.groups) HandOut(patch, group);
  }
}

void EqualUpdate::HandOut(const WantedPatch& patch, const ModelGroup& group) {
  const std::string path = Fetch(patch, group);
  StepDone();
  std::vector<std::int32_t> ids = group.ids;
  std::stable_partition(ids.begin(), ids.end(), [](std::int32_t id) { return id != 0; });
  for (const std::int32_t id : ids) {
    ThrowIfStopAsked();
    Upload(patch, id, path);
    StepDone();
  }
  if (unlink(path.c_str()) != 0) Log(LOG_WARNING, "%s: %s", path.c_str(), std::strerror(errno));
}

std::string EqualUpdate::Fetch(const WantedPatch& patch, const ModelGroup& group) {
  Log(LOG_NOTICE, "%s for %s", patch.version.c_str(), group.unique.c_str());
  const download::TransferHooks hooks{
      [this] { return IsStopAsked(); },
      [this](std::uint64_t bytes, std::uint64_t whole) {
        ShowFraction(static_cast<double>(bytes) / static_cast<double>(whole));
      }};
  try {
    return download::FetchListedPatch({group.unique, patch.version, patch.store, false}, hooks);
  } catch (const download::DownloadError& e) {
    if (e.GetCause() == download::DownloadError::Cause::kCancelled) throw Stopped();
    throw;
  }
}

void EqualUpdate::Upload(const WantedPatch& patch, std::int32_t id, const std::string& path) {
  const auto node = std::find_if(nodes_.begin(), nodes_.end(), [id](const UpdateNode& candidate) {
    return candidate.GetNodeID() == id;
  });
  const std::string name = "node " + std::to_string(id);
  if (node == nodes_.end()) throw EqualUpdateError(name + " is not attached to the mesh");
  Json::Value params(Json::objectValue);
  params["base_ver_num"] = patch.base;
  const Response answer = SendPatch({id, node->GetAddress()}, params, path);
  if (answer.IsSuccess()) return;
  throw EqualUpdateError(name + (answer.IsValid() ? " refuses the patch with error " +
                                                        std::to_string(answer.GetErrno())
                                                  : " gives no usable answer to the patch"));
}

Response EqualUpdate::SendPatch(const NodeAddress& node, const Json::Value& params,
                                const std::string& path) {
  UploadLimits limits;
  limits.is_cancelled = [this] { return IsStopAsked(); };
  try {
    return NodeClient(limits).Upload(node, "KALO.Core.Upgrade.Patch", 1, "upload", params, path);
  } catch (const NodeUnreachable&) {
    ThrowIfStopAsked();
    throw;
  }
}

// Whoever waits for the end of the program waits for the update: while it runs, a second one must
// not begin.
void EqualUpdate::Follow() {
  int missed = 0;
  while (missed < kMostMissedLooks) {
    pollfd stop = {signals_.Fd(), POLLIN, 0};
    (void)poll(&stop, 1, static_cast<int>(kLook.count()));
    if (IsStopAsked()) {
      Log(LOG_NOTICE, "told to end; the nodes go on installing");
      return;
    }
    const Client::SystemUpdateProgress progress = AskProgress();
    missed = progress.code == 0 ? 0 : missed + 1;
    if (progress.code != 0) continue;
    if (progress.step == "finish") return;
    if (progress.step == "failed") {
      throw EqualUpdateError("the update failed: " + progress.err_desc + ": " + progress.err_msg);
    }
  }
  throw EqualUpdateError("the mesh service tells no more how the update goes on");
}

// The file's last word comes last: who waits for it finds nothing of this run.
void EqualUpdate::TakeBack(const char* word) {
  try {
    if (!nodes_.empty()) CleanNodes();
  } catch (const std::exception& e) {
    Log(LOG_ERR, "cannot take the patches back: %s", e.what());
  }
  (void)RemoveContents(paths::kFullStore);
  (void)RemoveContents(paths::kNanoStore);
  WriteProgress(word, 0);
}

void EqualUpdate::CleanNodes() const {
  (void)UpdateUtil::SendWebAPIs(nodes_, "KALO.Core.Upgrade.Patch", "clean", 1);
}

void EqualUpdate::StepDone() {
  ++done_;
  ShowFraction(0);
}

void EqualUpdate::ShowFraction(double fraction) {
  const int percent = static_cast<int>(kPercentWhenHandedOut * (done_ + fraction) / steps_);
  if (percent <= percent_) return;
  percent_ = percent;
  WriteProgress("upgrading", percent);
}

bool EqualUpdate::IsStopAsked() {
  stop_asked_ = stop_asked_ || signals_.Next() != 0;
  return stop_asked_;
}

void EqualUpdate::ThrowIfStopAsked() {
  if (IsStopAsked()) throw Stopped();
}

}  // namespace kalo::equal
