#include "platform/update/system_update.h"

#include <syslog.h>

#include <charconv>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "host/core/log.h"
#include "host/update/feed/feed_client.h"
#include "host/update/feed/offers.h"
#include "host/update/patch_format/version_text.h"

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

std::vector<std::string> Upgrade::GetUpgradePath(const std::string& target,
                                                 const std::string& current,
                                                 const std::string& unique) {
  const auto to = kalo::patch::ParseVersionText(target);
  const auto from = kalo::patch::ParseVersionText(current);
  if (!to || !from) throw std::runtime_error("\"" + (to ? current : target) + "\" is no version");
  if (*from >= *to) return {};
  const std::optional<ReleaseList> list = kalo::feed::FetchReleaseList(unique);
  if (!list) throw std::runtime_error("no list of releases for " + unique);
  const auto stops = kalo::feed::StopsBefore(*list, *from, *to);
  if (!stops)
    throw std::runtime_error("no way from " + current + " to " + target + " for " + unique);
  std::vector<std::string> path;
  for (const Release* stop : *stops) path.push_back(stop->version);
  path.push_back(target);
  return path;
}

}  // namespace KALO::MESH::SDK::Upgrade
