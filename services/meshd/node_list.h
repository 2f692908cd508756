#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kalo::meshd {

/// A node that belongs to the mesh, and how it hangs in it.
struct MeshNode {
  std::uint32_t id = 0;  ///< 0 is the CAP
  std::string address;   ///< numeric, without port
  std::uint32_t parent = 0;
  std::uint32_t hops = 0;  ///< links between it and the CAP
  bool wired = false;
};

/// Reads the CAP's list of nodes strictly: a list that is wrong anywhere would update nodes in the
/// wrong order, so nothing of it counts.
/// @throws BadJson when it is not a list of distinct nodes with node 0 in it, whose parents stand
///         in it one link nearer to the CAP.
[[nodiscard]] std::vector<MeshNode> ParseNodeList(const std::string& text);

/// @throws std::runtime_error when the file cannot be read; as ParseNodeList, with the path
[[nodiscard]] std::vector<MeshNode> ReadNodeList(const std::string& path);

}  // namespace kalo::meshd
