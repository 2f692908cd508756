#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "host/update/feed/offers.h"
#include "host/update/feed/release_list.h"
#include "host/update/https_get.h"

/// The maker's update feed as a router sees it.
namespace kalo::feed {

/// @return the address under which the feed's files lie, without a slash at the end: "rss_server"
///         of the router's defaults, or the built-in one.
[[nodiscard]] std::string BaseAddress();

/// How often list and signature are fetched: they are two files, and who asks while they are being
/// replaced may get one of each.
inline constexpr int kListTries = 2;

/// Returns what this router is to the list's releases: its place in rollouts, and whether it takes
/// beta releases. An automatic update takes them only if "update_channel" of the router's
/// configuration is "beta".
[[nodiscard]] Audience ThisRouter();

/// When the fetch of a list is given up.
struct FetchBudget {
  std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max();
  Cancellation is_cancelled = {};
};

/// Fetches the list of one model and verifies it: signature, model, number (which must not fall;
/// the highest one seen is kept in /var/lib/kalo/feed), expiry.
/// @return empty after one log line that says what is wrong.
[[nodiscard]] std::optional<ReleaseList> FetchReleaseList(const std::string& unique,
                                                          const FetchBudget& budget = {});

}  // namespace kalo::feed
