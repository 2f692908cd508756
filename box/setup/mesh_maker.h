#pragma once

#include <filesystem>
#include <map>
#include <string>
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

/// Makes keys, certificates, users, the roots of all nodes, the firmware that they start with and
/// the empty update feed.
/// @param first_version what nodes run at first, in display form
/// @param node_versions what single nodes run instead, by id
/// @throws std::runtime_error, std::system_error
[[nodiscard]] NewMesh MakeMesh(const Layout& layout, const std::filesystem::path& build, int nodes,
                               const PatchKeys& patch_keys, const std::string& first_version,
                               const std::map<int, std::string>& node_versions = {});

}  // namespace kalo::box
