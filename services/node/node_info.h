#pragma once

#include <json/value.h>

#include <string>

#include "host/update/patch_format/patch_file.h"

namespace kalo::node {

/// @return this node's id; 0 on the main router.
/// @throws std::runtime_error when the node does not know it.
[[nodiscard]] int NodeId();

/// What this node runs: /usr/kalo/VERSION, with the model from its own hardware configuration.
/// @throws std::runtime_error when one of them cannot be read.
[[nodiscard]] patch::PatchDescription RunningVersion();

/// The answer of `KALO.Core.Upgrade` `info`: who this node is, what it runs, what is staged and how
/// far its installation is.
/// @throws std::runtime_error when the node does not know who it is or what it runs.
[[nodiscard]] Json::Value NodeInfo();

/// The answer of `KALO.Core.Upgrade` `progress`.
[[nodiscard]] Json::Value InstallProgress();

}  // namespace kalo::node
