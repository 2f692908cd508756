#pragma once

#include <optional>
#include <string>

#include "host/update/patch_format/patch_file.h"

namespace kalo::node {

/// What waits on this node to be installed: a full patch, a small update for what runs, or a full
/// patch and the small update on top of it, installed in one go.
struct StagedPatch {
  std::string full;                     ///< path; empty: the small update applies on what runs
  std::string small;                    ///< path; empty when there is none
  patch::PatchDescription description;  ///< of what will run afterwards
};

/// @return what is staged; empty when nothing is.
[[nodiscard]] std::optional<StagedPatch> ReadStaged();

/// @return the staged full patch's description; empty when there is none.
[[nodiscard]] std::optional<patch::PatchDescription> StagedFull();

/// Moves a verified patch to the stage. A full one takes the place of all that stood there; a small
/// update joins the full one that it applies on, and takes the place of anything else. On the main
/// router a full patch is also where the upgrade's precheck looks for it. The patch must lie on the
/// same file system as the stage.
/// @param base_version pure version that the patch applies on; empty for a full one
/// @throws std::system_error; the patch then may be where it was, and is not staged.
void Stage(const std::string& path, const patch::PatchDescription& description,
           const std::string& base_version);

/// Drops what is staged.
/// @throws std::system_error
void RemoveStaged();

}  // namespace kalo::node
