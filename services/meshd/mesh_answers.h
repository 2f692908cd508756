#pragma once

#include "host/mesh/mesh_details.h"
#include "platform/mesh/types.h"
#include "services/meshd/node_registry.h"
#include "services/meshd/update_record.h"

namespace kalo::meshd {

/// Every node that answered since the service started, the offline ones with what they last said.
[[nodiscard]] KALO::MESH::SDK::Client::NodeInfosResult NodeInfosOf(const NodeRegistry& registry);

/// The nodes that are online.
[[nodiscard]] KALO::MESH::SDK::Client::RepeaterAccessInfosResult AccessInfosOf(
    const NodeRegistry& registry);

/// Every known node. One that was not asked yet does not count as offline: "syncing" says so.
[[nodiscard]] KALO::MESH::SDK::Client::MeshSystemStatus SystemStatusOf(
    const NodeRegistry& registry);

/// Every known node. While an update runs, step and percent of its nodes are as the update has
/// them, otherwise as their own installers say.
[[nodiscard]] MeshDetails DetailsOf(const NodeRegistry& registry, const UpdateRecord& record);

}  // namespace kalo::meshd
