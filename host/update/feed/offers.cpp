#include "host/update/feed/offers.h"

#include <algorithm>
#include <set>
#include <string>

namespace kalo::feed {
namespace {

constexpr std::int32_t kLowestVersionTwo = 76000;
constexpr std::int32_t kGroups = 10;
constexpr std::int32_t kGroupSize = kWholeShare / kGroups;

// The releases stand in ascending order, so the last that fits is the newest.
template <typename Predicate>
const Release* Newest(const ReleaseList& list, Predicate fits) {
  const auto found = std::find_if(list.releases.rbegin(), list.releases.rend(), fits);
  return found != list.releases.rend() ? &*found : nullptr;
}

bool IsStoneBetween(const ReleaseList& list, std::int32_t build, std::int32_t running,
                    std::int32_t target) {
  return build > running && build < target &&
         std::binary_search(list.stones.begin(), list.stones.end(), build);
}

// The lowest stepping stone between what runs and the target; the target when there is none.
template <typename Predicate>
const Release* NextStop(const ReleaseList& list, std::int32_t build, const Release* target,
                        Predicate fits) {
  if (target == nullptr) return nullptr;
  for (const Release& release : list.releases) {
    if (IsStoneBetween(list, release.build, build, target->build) && fits(release)) return &release;
  }
  return target;
}

// The releases of version 2 that reach a router which runs a build.
auto VersionTwoReleases(std::int32_t build, const Audience& audience) {
  return [build, audience](const Release& release) {
    return !release.IsSmall() && release.build >= kLowestVersionTwo && release.build > build &&
           Reaches(release, audience);
  };
}

bool IsFullForAll(const Release& release) {
  return !release.IsSmall() && release.IsForAll();
}

const Release* NewestSmall(const ReleaseList& list, std::int32_t build) {
  return Newest(list, [build](const Release& release) {
    return release.IsSmall() && release.build == build && release.nano > 0 && release.IsForAll();
  });
}

}  // namespace

std::int32_t RolloutPosition(std::uint32_t rolling_group) {
  const auto number = static_cast<std::int32_t>(rolling_group % kWholeShare);
  return number % kGroups * kGroupSize + number / kGroups;
}

bool Reaches(const Release& release, const Audience& audience) {
  if (!release.phase.empty() && !audience.takes_beta) return false;
  if (!audience.position) return release.groups == kAllGroups && release.share == kWholeShare;
  const char group = static_cast<char>('0' + *audience.position / kGroupSize);
  return release.groups.find(group) != std::string::npos && *audience.position < release.share;
}

const Release* RegularOffer(const ReleaseList& list, std::int32_t build, bool small_updates) {
  const Release* full = Newest(list, IsFullForAll);
  if (full != nullptr && full->build > build) return NextStop(list, build, full, IsFullForAll);
  const Release* small = small_updates ? NewestSmall(list, build) : nullptr;
  return small != nullptr ? small : full;
}

std::int32_t SmallUpdateNumber(const ReleaseList& list, std::int32_t build) {
  const Release* small = NewestSmall(list, build);
  return small != nullptr ? small->nano : 0;
}

const Release* VersionTwoOffer(const ReleaseList& list, std::int32_t build,
                               const Audience& audience) {
  const auto fits = VersionTwoReleases(build, audience);
  return NextStop(list, build, Newest(list, fits), fits);
}

bool IsVersionTwoOffer(const ReleaseList& list, std::int32_t build, const Release& release,
                       const Audience& audience) {
  const auto fits = VersionTwoReleases(build, audience);
  return fits(release) && NextStop(list, build, &release, fits) == &release;
}

std::vector<const Release*> VersionTwoOffers(const ReleaseList& list, std::int32_t build,
                                             char group, bool beta) {
  const std::int32_t first = (group - '0') * kGroupSize;
  std::set<std::int32_t> positions = {first};  // where the set of releases changes
  for (const Release& release : list.releases) {
    if (release.share > first && release.share < first + kGroupSize) {
      positions.insert(release.share);
    }
  }
  std::set<const Release*> offers;
  for (const std::int32_t position : positions) {
    offers.insert(VersionTwoOffer(list, build, {position, beta}));
    offers.insert(VersionTwoOffer(list, build, {position, false}));
  }
  offers.erase(nullptr);
  std::vector<const Release*> sorted(offers.begin(), offers.end());
  std::sort(sorted.begin(), sorted.end(),
            [](const Release* a, const Release* b) { return a->build > b->build; });
  return sorted;
}

std::optional<std::vector<const Release*>> StopsBefore(const ReleaseList& list,
                                                       const patch::VersionNumbers& running,
                                                       const patch::VersionNumbers& target) {
  const auto is_listed = [&](bool small, std::int32_t nano) {
    return Newest(list, [&](const Release& release) {
             return release.build == target.build && release.nano == nano &&
                    release.IsSmall() == small;
           }) != nullptr;
  };
  if (running.build < target.build && !is_listed(false, 0)) return std::nullopt;
  if (target.nano > 0 && !is_listed(true, target.nano)) return std::nullopt;
  std::vector<const Release*> stops;
  for (const Release& release : list.releases) {
    if (!release.IsSmall() && IsStoneBetween(list, release.build, running.build, target.build)) {
      stops.push_back(&release);
    }
  }
  return stops;
}

}  // namespace kalo::feed
