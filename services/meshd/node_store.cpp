#include "services/meshd/node_store.h"

#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "host/core/strict_json.h"
#include "services/meshd/bus_text.h"
#include "services/meshd/json_members.h"

namespace kalo::meshd {
namespace {

constexpr std::size_t kFileLimit = std::size_t{1} << 20;
constexpr mode_t kMode = 0600;
constexpr std::uint32_t kLargestId = 65535;
constexpr const char* kNodes = "nodes";

NodeReport ReadIdentity(const Json::Value& entry) {
  NodeReport report;
  report.node_id = NumberOf(entry, "id", kLargestId);
  report.name = BusText(TextOf(entry, "name"));
  report.unique = BusText(TextOf(entry, "model"));
  report.version = BusText(TextOf(entry, "version"));
  report.build = IntegerOf(entry, "build");
  report.nano = IntegerOf(entry, "nano");
  return report;
}

void PutIdentity(const NodeReport& report, Json::Value& entry) {
  entry["id"] = report.node_id;
  entry["name"] = report.name;
  entry["model"] = report.unique;
  entry["version"] = report.version;
  entry["build"] = report.build;
  entry["nano"] = report.nano;
}

std::vector<NodeReport> ReadNodes(const Json::Value& root) {
  const Json::Value& list = MemberOf(root, kNodes);
  if (!list.isArray()) throw BadJson("\"nodes\" is not an array");
  std::vector<NodeReport> nodes;
  std::set<std::uint32_t> ids;
  for (const Json::Value& entry : list) {
    nodes.push_back(ReadIdentity(entry));
    if (!ids.insert(nodes.back().node_id).second) throw BadJson("a node is listed twice");
  }
  return nodes;
}

// The root of a file, with the identities that the registry has and the unknown keys of the old
// one.
Json::Value Updated(const Json::Value& old, const NodeRegistry& registry) {
  std::map<std::uint32_t, Json::Value> entries;
  for (const Json::Value& entry : old[kNodes]) entries[entry["id"].asUInt()] = entry;
  Json::Value root = old;
  root[kNodes] = Json::Value(Json::arrayValue);
  for (const auto& [id, node] : registry.Nodes()) {
    if (!node.report) continue;
    PutIdentity(*node.report, entries[id]);
    root[kNodes].append(entries[id]);
  }
  return root;
}

}  // namespace

std::vector<NodeReport> NodeStore::Load() {
  const std::optional<std::string> text = ReadFile(path_, kFileLimit);
  if (!text) {
    if (errno != ENOENT) Log(LOG_ERR, "%s: %s", path_.c_str(), std::strerror(errno));
    return {};
  }
  try {
    Json::Value root = ParseDocument(*text);
    std::vector<NodeReport> nodes = ReadNodes(root);
    root_ = std::move(root);
    saved_ = *text;
    return nodes;
  } catch (const BadJson& e) {
    Log(LOG_ERR, "%s: %s; the names of offline nodes are lost", path_.c_str(), e.what());
    return {};
  }
}

bool NodeStore::Save(const NodeRegistry& registry) {
  Json::Value root = Updated(root_, registry);
  std::string text = WriteJson(root) + "\n";
  if (text.size() > kFileLimit) {  // unknown keys made it larger than can be read again
    root = Updated(Json::Value(Json::objectValue), registry);
    text = WriteJson(root) + "\n";
  }
  if (text == saved_) return true;
  if (!WriteFileAtomic(path_, text, kMode)) {
    if (!failing_) Log(LOG_ERR, "cannot save %s: %s", path_.c_str(), std::strerror(errno));
    failing_ = true;
    return false;
  }
  failing_ = false;
  root_ = std::move(root);
  saved_ = std::move(text);
  return true;
}

}  // namespace kalo::meshd
