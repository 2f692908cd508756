#pragma once

#include <string>
#include <vector>

#include "box/layout.h"
#include "box/mesh_plan.h"
#include "box/setup/certificates.h"
#include "box/setup/patch_keys.h"

namespace kalo::box {

/// What the files of all nodes of one mesh are made from.
struct MeshSetup {
  std::vector<PlannedNode> nodes;
  const CertificateAuthority* mesh_authority = nullptr;   ///< vouches for nodes
  const CertificateAuthority* admin_authority = nullptr;  ///< vouches for what browsers see
  const CertificateAuthority* feed_authority = nullptr;   ///< vouches for the update feed
  std::string users;                                      ///< contents of the users file
  PatchKeys patch_keys;
};

/// Makes the root of one node: configuration, credentials, users, patch keys. Its storage is empty.
/// @throws std::runtime_error, std::system_error
void MakeNodeRoot(const Layout& layout, const MeshSetup& mesh, const PlannedNode& node);

}  // namespace kalo::box
