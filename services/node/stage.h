#pragma once

#include <optional>
#include <string>

#include "host/update/patch_format/patch_file.h"

namespace kalo::node {

/// The patch that waits on this node to be installed.
struct StagedPatch {
  std::string path;
  patch::PatchDescription description;
};

/// @return the staged patch; empty when there is none.
[[nodiscard]] std::optional<StagedPatch> ReadStaged();

/// Moves a verified patch to the stage, in place of what stood there. It must lie on the same file
/// system as the stage.
/// @param base_version pure version that the patch applies on; empty for a full one
/// @throws std::system_error; the patch then may be where it was, and nothing is staged.
void Stage(const std::string& path, const patch::PatchDescription& description,
           const std::string& base_version);

/// Drops what is staged.
/// @throws std::system_error
void RemoveStaged();

}  // namespace kalo::node
