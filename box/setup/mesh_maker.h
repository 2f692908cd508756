#pragma once

#include <filesystem>
#include <vector>

#include "box/layout.h"
#include "box/mesh_plan.h"
#include "box/setup/administrator.h"
#include "box/setup/patch_keys.h"

namespace kalo::box {

/// What is made before a mesh can start.
struct NewMesh {
  std::vector<PlannedNode> nodes;
  Administrator administrator;
};

/// Makes the state folder ready for a new mesh: removes what an earlier one left there.
/// @throws std::runtime_error when the folder holds something else.
void ClearState(const Layout& layout);

/// Makes keys, certificates, users, the roots of all nodes and the firmware that they start with
/// (build 76000).
/// @throws std::runtime_error, std::system_error
[[nodiscard]] NewMesh MakeMesh(const Layout& layout, const std::filesystem::path& build, int nodes,
                               const PatchKeys& patch_keys);

}  // namespace kalo::box
