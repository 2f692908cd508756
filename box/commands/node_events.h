#pragma once

#include <string>
#include <vector>

#include "box/layout.h"

namespace kalo::box {

/// @return the words of all events that can be made to happen to a node.
[[nodiscard]] std::vector<std::string> EventWords();

/// Makes an event happen to a node:
///   offline, online          its plug is pulled; it is started again
///   upload-fail, upload-ok   its patch keys are away, so that no patch verifies; back
///   hang, resume             its web API server stands still; goes on
///   mesh-stop, mesh-start    the CAP's mesh service is off; on
///   fill-disk, free-disk     its storage is full; free again
/// @throws std::runtime_error for an unknown word or a node that does not do it.
void MakeEvent(const Layout& layout, int node, const std::string& word);

}  // namespace kalo::box
