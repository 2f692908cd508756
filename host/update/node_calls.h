#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <vector>

#include "host/update/node_client.h"
#include "host/update/node_transfer.h"

namespace kalo {

/// What a call to a node may take that only asks it for something quick.
inline constexpr std::chrono::milliseconds kNodeCallDeadline{10000};

/// Makes one call without parameters on many nodes at the same time.
/// @param deadline for each and so for all of them
/// @return the answers by node id; one that is not valid for a node that could not be reached.
/// @throws std::runtime_error when the mesh's credentials cannot be loaded.
[[nodiscard]] std::map<std::int32_t, KALO::MESH::SDK::Response> CallNodes(
    const std::vector<NodeAddress>& nodes, const NodeCall& call,
    std::chrono::milliseconds deadline);

}  // namespace kalo
