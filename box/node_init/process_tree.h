#pragma once

#include <sys/types.h>

#include <vector>

namespace kalo::box {

/// @return a process and all that descend from it, parents first, as /proc shows them now.
[[nodiscard]] std::vector<pid_t> ProcessTree(pid_t root);

/// Sends a signal to a process and all that descend from it.
void SignalTree(pid_t root, int signal);

}  // namespace kalo::box
