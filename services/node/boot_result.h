#pragma once

#include <string>

namespace kalo::node {

/// Called once a boot is healthy. Keeps the slot that is running and reports how the installation
/// ended that led to this boot, if one did: "finish" 100, and the staged patch is dropped, or
/// "failed", and it stays for another try. Calling it again changes nothing.
/// @throws std::system_error when the slot's state cannot be written.
void ConfirmBoot();

/// Called when a boot did not become healthy: goes back to the previous slot, if this boot tried a
/// new one.
/// @return whether a restart will help.
/// @throws std::system_error
[[nodiscard]] bool GiveUpBoot();

}  // namespace kalo::node
