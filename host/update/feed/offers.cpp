#include "host/update/feed/offers.h"

#include <algorithm>

namespace kalo::feed {
namespace {

constexpr std::int32_t kLowestVersionTwo = 76000;

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

bool IsFullForAll(const Release& release) {
  return !release.IsSmall() && release.IsForAll();
}

const Release* NewestSmall(const ReleaseList& list, std::int32_t build) {
  return Newest(list, [build](const Release& release) {
    return release.IsSmall() && release.build == build && release.nano > 0 && release.IsForAll();
  });
}

}  // namespace

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

const Release* VersionTwoOffer(const ReleaseList& list, std::int32_t build, char group, bool beta) {
  const auto fits = [=](const Release& release) {
    return !release.IsSmall() && release.build >= kLowestVersionTwo && release.build > build &&
           release.groups.find(group) != std::string::npos && (beta || release.phase.empty());
  };
  return NextStop(list, build, Newest(list, fits), fits);
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
