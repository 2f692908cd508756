#pragma once

#include <cstdint>
#include <string>

#include "host/update/feed/release_list.h"
#include "host/update/patch_format/key_ring.h"

namespace kalo::feed {

/// What a list is held against.
struct ListRules {
  std::string unique;             ///< the model that was asked for
  std::int32_t known_number = 0;  ///< the highest number seen so far: an older list is a replay
  std::int64_t now = 0;           ///< seconds since 1970
};

/// Verifies and reads a list as it came from outside.
/// @throws std::runtime_error saying what is wrong: not signed by one of the keys, no list, for
///         another model, older than one seen before, expired.
[[nodiscard]] ReleaseList CheckReleaseList(const std::string& text, const std::string& signature,
                                           const patch::KeyRing& keys, const ListRules& rules);

}  // namespace kalo::feed
