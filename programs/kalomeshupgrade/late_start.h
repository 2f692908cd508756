#pragma once

#include <cstdint>
#include <functional>

#include "platform/mesh/types.h"

namespace kalo::equal {

/// Tells an update that was refused from one whose start was only answered too late, or whose
/// answer was lost: that one may begin yet, after the mesh service has asked all nodes once more.
/// @param code what the mesh service answered to the start; not 0
/// @param ask waits for a moment and asks how the update goes; called ten times at most
/// @return whether it runs, or has to be taken for running because nobody tells.
[[nodiscard]] bool RunsAllTheSame(
    std::uint16_t code, const std::function<KALO::MESH::SDK::Client::SystemUpdateProgress()>& ask);

}  // namespace kalo::equal
