#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "host/update/feed/release_list.h"
#include "host/update/patch_format/version_text.h"

/// Which release a router is offered. Decided by build number; of equal builds by number of the
/// small update.
namespace kalo::feed {

/// A router as the list's releases see it.
struct Audience {
  /// Place in the order in which rollouts reach routers, 0 to 9999; empty if the router has not
  /// drawn its number yet.
  std::optional<std::int32_t> position;
  bool takes_beta = false;
};

/// Returns a router's place in that order. Its rollout group, the number's last digit, comes first:
/// group 0 is the first tenth of all routers.
/// @param rolling_group the number that the router drew, 0 to 9999
[[nodiscard]] std::int32_t RolloutPosition(std::uint32_t rolling_group);

/// Returns whether the list releases this to the router: by phase, group and share.
[[nodiscard]] bool Reaches(const Release& release, const Audience& audience);

/// What the regular check offers to a router. Only releases for all count.
/// @param build         what it runs
/// @param small_updates whether small updates of its own build may be offered
/// @return the next stop on the way to the newest full release when there is one above the build;
///         else the newest small update of the build; else the newest full release, which then is
///         no newer than what runs. Null when the list has nothing of all that. A router of another
///         build is never offered a small update.
[[nodiscard]] const Release* RegularOffer(const ReleaseList& list, std::int32_t build,
                                          bool small_updates);

/// @return the number of the newest small update of a build that is for all; 0 when there is none.
[[nodiscard]] std::int32_t SmallUpdateNumber(const ReleaseList& list, std::int32_t build);

/// What the version-2 documents offer: full releases from build 76000 on which reach the router.
/// @param build what the router runs; only releases above it count
/// @return the next stop on the way to the newest of them; null when there is none.
[[nodiscard]] const Release* VersionTwoOffer(const ReleaseList& list, std::int32_t build,
                                             const Audience& audience);

/// Returns whether a router may be offered this release of the list by version 2: it reaches the
/// router, is above its build, and no stepping stone lies before it.
[[nodiscard]] bool IsVersionTwoOffer(const ReleaseList& list, std::int32_t build,
                                     const Release& release, const Audience& audience);

/// Returns what version 2 offers to the routers of one rollout group, newest first: more than one
/// release if one of them reaches a part of the group only, or is a beta release, which a router
/// may not take.
/// @param group '0' to '9'
[[nodiscard]] std::vector<const Release*> VersionTwoOffers(const ReleaseList& list,
                                                           std::int32_t build, char group,
                                                           bool beta);

/// @return the full releases at which a router must stop on its way, by ascending build: the
///         stepping stones between its build and the target's, without the target. Staged and beta
///         releases too: some node of the mesh runs what the way leads to. Empty when the list
///         lacks what the target is made of, its full release or its small update.
[[nodiscard]] std::optional<std::vector<const Release*>> StopsBefore(
    const ReleaseList& list, const patch::VersionNumbers& running,
    const patch::VersionNumbers& target);

}  // namespace kalo::feed
