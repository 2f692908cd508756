#include "platform/update/update_util.h"

#include <fcntl.h>
#include <sys/file.h>
#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "host/core/file_lock.h"
#include "host/core/log.h"
#include "host/core/regular_file.h"
#include "host/core/strict_json.h"
#include "host/core/unique_fd.h"
#include "host/update/node_calls.h"
#include "platform/paths.h"

namespace KALO::MESH::SDK::Upgrade {
namespace {

constexpr std::size_t kLargestDocument = std::size_t{1} << 20;

}  // namespace

bool UpdateUtil::IsAutoUpdating() {
  // Only looks: the file is the updater's to make. A shared lock, so that two that look at the
  // same time do not take each other for the updater.
  const kalo::UniqueFd fd(
      ::open(paths::kAutoUpdateLock, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  return fd && ::flock(fd.Get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

std::map<std::int32_t, Response> UpdateUtil::SendWebAPIs(const std::vector<UpdateNode>& nodes,
                                                         const std::string& api,
                                                         const std::string& method, int version) {
  std::vector<kalo::NodeAddress> addresses;
  addresses.reserve(nodes.size());
  for (const UpdateNode& node : nodes) {
    addresses.push_back({node.GetNodeID(), node.GetAddress()});
  }
  // After a broken download the recovery program cleans the nodes. Whoever copies patches to nodes
  // cleans them first: from then on no late "clean" may come.
  const auto lock = kalo::FileLock::TakeWithin(paths::kNodeRoundLock, 2 * kalo::kNodeCallDeadline);
  if (!lock) kalo::Log(LOG_WARNING, "%s: %s", paths::kNodeRoundLock, std::strerror(errno));
  return kalo::CallNodes(addresses, {api, version, method}, kalo::kNodeCallDeadline);
}

bool UpdateUtil::ParseJsonRootFromFile(const std::string& path, Json::Value& root) {
  root = Json::Value();
  const auto file = kalo::RegularFile::Open(AT_FDCWD, path);
  const auto text = file && file->IsOurs() ? file->ReadAll(kLargestDocument) : std::nullopt;
  auto document = text ? kalo::ParseStrictJson(*text) : std::nullopt;
  if (!document) return false;
  root = std::move(*document);
  return true;
}

}  // namespace KALO::MESH::SDK::Upgrade
