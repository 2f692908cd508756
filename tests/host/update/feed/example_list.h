#pragma once

#include <string>

#include "host/update/feed/release_list.h"

namespace kalo::feed {

/// @return a release of "kalo_m1" as a list would hold it.
inline Release Example(const std::string& version, std::int32_t build, std::int32_t nano = 0,
                       const std::string& groups = "0123456789", const std::string& phase = "") {
  const std::string number = std::to_string(build) + "-" + std::to_string(nano);
  return {version, build,  nano,
          phase,   groups, {"patches/kalo_m1/" + number + ".patch", 1000, std::string(64, 'a')}};
}

/// @return a list with these releases.
inline ReleaseList ExampleList(std::vector<Release> releases) {
  ReleaseList list;
  list.unique = "kalo_m1";
  list.number = 7;
  list.expires = 2000000000;
  list.releases = std::move(releases);
  SortReleaseList(list);
  return list;
}

}  // namespace kalo::feed
