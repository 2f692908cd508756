#pragma once

#include <optional>
#include <string>

#include "host/update/feed/release_list.h"

namespace kalo::feed {

/// What the maker's list says of one release, for those who show it.
/// @return empty when the list cannot be had, which the log tells, or has no such release.
[[nodiscard]] std::optional<Release> FetchReleaseDetails(const std::string& unique,
                                                         const std::string& version);

}  // namespace kalo::feed
