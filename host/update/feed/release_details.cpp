#include "host/update/feed/release_details.h"

#include "host/update/feed/feed_client.h"

namespace kalo::feed {

std::optional<Release> FetchReleaseDetails(const std::string& unique, const std::string& version) {
  const std::optional<ReleaseList> list = FetchReleaseList(unique);
  const Release* release = list ? FindRelease(*list, version) : nullptr;
  return release == nullptr ? std::nullopt : std::optional(*release);
}

}  // namespace kalo::feed
