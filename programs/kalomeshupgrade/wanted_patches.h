#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/update/update_node.h"

namespace kalo::equal {

/// Why the nodes could not be brought to one version.
class EqualUpdateError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The nodes of one model.
struct ModelGroup {
  std::string unique;
  std::vector<std::int32_t> ids;

  [[nodiscard]] bool HasCap() const;
};

/// One kind of patch that the last check found to bring nodes to one version.
struct WantedPatch {
  std::string version;             ///< as the record has it, "VXM 1.4.0-76010"
  std::string base;                ///< pure version that it applies on; empty for a full patch
  std::string store;               ///< folder for the download
  std::vector<ModelGroup> groups;  ///< that of the CAP last
};

/// Reads the text form of the records, "model  0 3; other  5;", as the download reads it: a group
/// counts from its closing semicolon on.
[[nodiscard]] std::vector<ModelGroup> ParseGroups(const std::string& text);

/// Brings groups into the order in which the download handles them: the CAP's own group last, and
/// of several that claim the CAP only the last. Groups without nodes are dropped.
[[nodiscard]] std::vector<ModelGroup> InOrder(const std::vector<ModelGroup>& groups);

/// Reads what the check recorded: the full patch first, then the small update on top of it.
/// @return empty when nothing is needed.
[[nodiscard]] std::vector<WantedPatch> ReadWantedPatches();

/// Fails if a patch leads past the highest version that runs in the mesh. The record of an ordinary
/// check does; its patches need the precheck and the licence, which this program does not ask for.
/// @throws EqualUpdateError
void CheckTargets(const std::vector<WantedPatch>& patches,
                  const std::vector<KALO::MESH::SDK::Upgrade::UpdateNode>& nodes);

}  // namespace kalo::equal
