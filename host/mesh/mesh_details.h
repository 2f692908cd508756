#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kalo {

/// One node of the mesh as an administrator sees it.
struct MeshNodeDetails {
  std::uint32_t id = 0;
  std::string name;     ///< empty, as the next two, while the node never answered
  std::string model;    ///< hardware model
  std::string version;  ///< running version in display form
  std::string role;     ///< "cap" or "satellite"
  bool online = false;
  std::string boot_id;
  std::string step;  ///< step word of its installation, "none" when there is none
  std::int32_t percent = 0;
  std::string staged_version;  ///< empty when no patch is staged on it
  std::string error;           ///< why its last update failed; empty when it did not
};

struct MeshDetails {
  std::uint16_t code = 0;  ///< 0 is success; only then the rest means anything
  bool update_running = false;
  std::vector<MeshNodeDetails> nodes;  ///< by ascending id, the offline ones too
};

/// Asks the mesh service for everything it knows of the nodes, over a bus connection of its own.
/// @throws std::exception when the bus cannot be reached.
[[nodiscard]] MeshDetails GetMeshDetails();

}  // namespace kalo
