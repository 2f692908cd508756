#pragma once

#include <chrono>
#include <string>

namespace kalo::download {

/// A file that is older was left by a process that was killed: none is needed longer than the
/// slowest fetch or write takes.
inline constexpr std::chrono::minutes kLeftFileAge{2};

/// Removes the temporary files that killed processes left in a folder, those of interrupted writes
/// (".kalo-…") and fetched documents ("rss_v2_…"). Younger ones may be in use and stay; so does
/// what is no regular file of ours.
void SweepLeftFiles(const std::string& folder);

}  // namespace kalo::download
