#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/mesh/types.h"
#include "services/meshd/update_record.h"

namespace kalo::meshd {

/// @return the step word's place in the fixed order of the update's steps; -1 for any other word.
[[nodiscard]] int StepRank(std::string_view step);

/// Brings the record's shown step and total up to where its nodes stand. Neither ever steps back.
///
/// The step is "preparing" until a node works, "waiting_remote_upgrading" while satellites do, and
/// the CAP's own step once the CAP installs; at the end "finish" or "failed". The total weighs
/// every node alike and within a node every step, the restart too; it is 100 only when all
/// succeeded.
void RefreshShown(UpdateRecord& record);

/// @return the record as users see it; code 0. Without any update: step "none", all zero.
[[nodiscard]] KALO::MESH::SDK::Client::SystemUpdateProgress ProgressOf(const UpdateRecord& record);

}  // namespace kalo::meshd
