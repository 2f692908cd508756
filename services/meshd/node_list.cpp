#include "services/meshd/node_list.h"

#include <arpa/inet.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <map>

#include "host/core/file_io.h"
#include "services/meshd/json_members.h"

namespace kalo::meshd {
namespace {

constexpr std::size_t kFileLimit = std::size_t{256} << 10;
constexpr std::uint32_t kLargestId = 65535;
constexpr std::uint32_t kMostHops = 64;
constexpr std::array kKeys = {"id", "address", "parent", "hops", "wired"};

bool IsNumericAddress(const std::string& address) {
  std::array<unsigned char, sizeof(in6_addr)> binary{};
  return inet_pton(AF_INET, address.c_str(), binary.data()) == 1 ||
         inet_pton(AF_INET6, address.c_str(), binary.data()) == 1;
}

MeshNode ReadNode(const Json::Value& entry) {
  MeshNode node;
  node.id = NumberOf(entry, "id", kLargestId);
  node.address = TextOf(entry, "address");
  node.parent = NumberOf(entry, "parent", kLargestId);
  node.hops = NumberOf(entry, "hops", kMostHops);
  node.wired = BooleanOf(entry, "wired");
  if (entry.size() != kKeys.size()) throw BadJson("a node has an unknown key");
  if (!IsNumericAddress(node.address)) throw BadJson("\"" + node.address + "\" is no address");
  return node;
}

void CheckPlace(const MeshNode& node, const std::map<std::uint32_t, MeshNode>& nodes) {
  const std::string who = "node " + std::to_string(node.id);
  if (node.id == 0) {
    if (node.parent != 0 || node.hops != 0) throw BadJson("node 0 hangs on a node");
    return;
  }
  const auto parent = nodes.find(node.parent);
  if (parent == nodes.end()) throw BadJson(who + " hangs on a node that is not in the list");
  if (node.hops != parent->second.hops + 1) throw BadJson(who + " has a wrong number of hops");
}

}  // namespace

std::vector<MeshNode> ParseNodeList(const std::string& text) {
  const Json::Value root = ParseDocument(text);
  if (!root.isArray()) throw BadJson("the list of nodes is no array");
  std::map<std::uint32_t, MeshNode> nodes;
  for (const Json::Value& entry : root) {
    const MeshNode node = ReadNode(entry);
    if (!nodes.emplace(node.id, node).second) {
      throw BadJson("node " + std::to_string(node.id) + " stands twice in the list");
    }
  }
  if (!nodes.contains(0)) throw BadJson("node 0 is not in the list");
  std::vector<MeshNode> list;
  for (const auto& [id, node] : nodes) {
    CheckPlace(node, nodes);
    list.push_back(node);
  }
  return list;
}

std::vector<MeshNode> ReadNodeList(const std::string& path) {
  const std::optional<std::string> text = ReadFile(path, kFileLimit);
  if (!text) throw std::runtime_error(path + ": " + std::strerror(errno));
  try {
    return ParseNodeList(*text);
  } catch (const BadJson& e) {
    throw BadJson(path + ": " + e.what());
  }
}

}  // namespace kalo::meshd
