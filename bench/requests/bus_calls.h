#pragma once

namespace kalo::bench {

/// Makes the bus calls of the module's "status", of either version: one connection for the nodes,
/// one for the state of the system, as a client each.
/// @return whether all were answered.
[[nodiscard]] bool CallForStatus();

/// Makes the bus call of its "progress" of an upgrade, version 2.
/// @return whether it was answered.
[[nodiscard]] bool CallForUpgrade();

}  // namespace kalo::bench
