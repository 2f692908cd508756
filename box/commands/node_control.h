#pragma once

#include <span>
#include <string>
#include <vector>

#include "box/layout.h"

namespace kalo::box {

/// Runs a command inside a node's box.
/// @param fds standard input, output and error of the command
/// @return its exit status; 128 + n when signal n ended it
/// @throws std::runtime_error when the node is off or the command cannot be started.
[[nodiscard]] int ExecInNode(const Layout& layout, int node, const std::vector<std::string>& argv,
                             std::span<const int, 3> fds);

/// Pulls a node's plug, and returns when it is off; or starts it again, and does not wait.
/// @throws std::runtime_error
void SetOnline(const Layout& layout, int node, bool online);

/// Sends a signal to a node's service and to all below it.
/// @throws std::runtime_error
void SignalService(const Layout& layout, int node, const std::string& service, int signal);

/// Says whether a node's service shall run. One that shall not is ended.
/// @throws std::runtime_error
void WantService(const Layout& layout, int node, const std::string& service, bool wanted);

}  // namespace kalo::box
