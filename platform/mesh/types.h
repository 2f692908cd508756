#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// What the mesh service tells. Every result carries a 16-bit code first; 0 is success, and only
/// then the rest means anything.
namespace KALO::MESH::SDK::Client {

/// What one node said of itself when the service last asked it.
struct NodeInfo {
  std::string name;          ///< the name its owner gave it, for people
  std::string unique;        ///< hardware model
  std::string address;       ///< where its own web API server listens, without port
  std::string full_version;  ///< running version in display form, "VXM 1.4.0-76000 Update 1"
  std::int32_t build_num = 0;
  std::int32_t nano_num = 0;
  std::string boot_id;         ///< changes with every boot
  std::string staged_version;  ///< display form of the patch staged on it; empty when none is
};

/// How a node hangs in the mesh. Attached nodes only: one that is offline has no entry.
struct RepeaterAccessInfo {
  std::uint32_t parent_id = 0;  ///< the node it is connected to
  std::uint32_t hops = 0;       ///< links between it and node 0
  bool wired = false;           ///< by cable, not by radio
};

struct NodeInfosResult {
  std::uint16_t code = 0;
  std::map<std::uint32_t, NodeInfo> nodes;  ///< by node id
};

struct RepeaterAccessInfosResult {
  std::uint16_t code = 0;
  std::map<std::uint32_t, RepeaterAccessInfo> nodes;  ///< by node id
};

struct MeshSystemNode {
  std::uint32_t node_id = 0;
  bool offline = false;
};

struct MeshSystemStatus {
  std::uint16_t code = 0;
  bool syncing = false;  ///< some known node was not asked yet since the service started
  std::vector<MeshSystemNode> nodes;
};

/// Where the mesh-wide update stands.
struct SystemUpdateProgress {
  std::uint16_t code = 0;
  std::string version;                ///< wanted version
  std::string step;                   ///< step word, "none" … "finish", "failed"
  std::int32_t percent = 0;           ///< of the step's node, 0 to 100
  std::int32_t total_percentage = 0;  ///< of the whole mesh, never falls; second version only
  std::int32_t error_number = 0;      ///< 0 when nothing failed
  std::string err_desc;               ///< what failed, on which node
  std::string err_msg;                ///< why
};

}  // namespace KALO::MESH::SDK::Client
