#include "platform/update/system_update.h"

#include <syslog.h>

#include <charconv>
#include <cstring>
#include <optional>
#include <string_view>

#include "host/core/log.h"
#include "host/update/feed/feed_client.h"
#include "host/update/feed/offers.h"

namespace KALO::MESH::SDK::Upgrade {
namespace {

using kalo::feed::Release;
using kalo::feed::ReleaseList;

// The text of a fixed-size field, which callers terminate.
template <std::size_t kSize>
std::string TextOf(const char (&field)[kSize]) {
  return std::string(field, strnlen(field, kSize));
}

}  // namespace

SystemUpdate::SystemUpdate(bool is_auto) : is_auto_(is_auto) {}

void SystemUpdate::CheckNewUpdateByHBXInfo(bool& found, tag_UPDATE_INFO& update,
                                           const tag_hbxinfo& info, bool small_updates) {
  found = false;
  update = {};
  const std::string unique = TextOf(info.unique);
  const std::string text = TextOf(info.build);
  std::int32_t build = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), build);
  if (error != std::errc() || end != text.data() + text.size() || build < 0) {
    kalo::Log(LOG_ERR, "update check: \"%s\" is no build number", text.c_str());
    return;
  }
  const std::optional<ReleaseList> list = kalo::feed::FetchReleaseList(unique);
  if (!list) return;
  const Release* offer = kalo::feed::RegularOffer(*list, build, small_updates);
  kalo::Log(LOG_INFO, "update check (%s): %s at build %d: %s", is_auto_ ? "automatic" : "by hand",
            unique.c_str(), build, offer != nullptr ? offer->version.c_str() : "nothing listed");
  if (offer == nullptr) return;
  found = true;
  update.type = offer->IsSmall() ? "smallupdate" : "hbx";
  update.version = offer->version;
}

int NanoJson::CheckNanoUpdate(const std::string& unique, int build) {
  const std::optional<ReleaseList> list = kalo::feed::FetchReleaseList(unique);
  return list ? kalo::feed::SmallUpdateNumber(*list, build) : 0;
}

}  // namespace KALO::MESH::SDK::Upgrade
