#pragma once

namespace kalo::bench {

/// Makes the bus calls of the module's "status", version 2: one connection for the nodes, one for
/// the state of the system, as a client each.
/// @return whether all were answered.
[[nodiscard]] bool CallMeshService();

}  // namespace kalo::bench
