#include "services/webapid/login_throttle.h"

#include <algorithm>

namespace kalo::webapid {
namespace {

constexpr std::chrono::seconds kLongestWait{60};
constexpr std::chrono::hours kForgottenAfter{1};
constexpr std::size_t kMostEntries = 4096;
constexpr unsigned kMostDoublings = 6;

template <typename Map, typename Key>
std::chrono::steady_clock::time_point FreeAt(const Map& entries, const Key& key) {
  const auto entry = entries.find(key);
  return entry == entries.end() ? std::chrono::steady_clock::time_point::min()
                                : entry->second.free_at;
}

// Keeps the newest entries only.
template <typename Map, typename TimeOf>
void MakeRoom(Map& entries, const typename Map::key_type& key, TimeOf time_of) {
  if (entries.size() < kMostEntries || entries.contains(key)) return;
  entries.erase(std::min_element(entries.begin(), entries.end(), [&](const auto& a, const auto& b) {
    return time_of(a.second) < time_of(b.second);
  }));
}

}  // namespace

std::chrono::seconds LoginThrottle::Wait(const std::string& user, const std::string& peer,
                                         Time now) const {
  const Time free_at = std::max({now, FreeAt(pairs_, Pair(user, peer)), FreeAt(peers_, peer)});
  return std::chrono::ceil<std::chrono::seconds>(free_at - now);
}

template <typename Key>
void LoginThrottle::Count(std::map<Key, Entry>& entries, const Key& key, Time now) {
  std::erase_if(entries,
                [now](const auto& entry) { return now - entry.second.last > kForgottenAfter; });
  MakeRoom(entries, key, [](const Entry& entry) { return entry.last; });
  Entry& entry = entries[key];
  const std::chrono::seconds wait{1 << std::min(entry.failures, kMostDoublings)};
  ++entry.failures;
  entry.last = now;
  entry.free_at = now + std::min(wait, kLongestWait);
}

void LoginThrottle::Failed(const std::string& user, const std::string& peer, Time now) {
  Count(pairs_, Pair(user, peer), now);
  Count(peers_, peer, now);
}

void LoginThrottle::Succeeded(const std::string& user, const std::string& peer, Time now) {
  const Pair pair(user, peer);
  pairs_.erase(pair);
  peers_.erase(peer);
  MakeRoom(trusted_, pair, [](Time time) { return time; });
  trusted_[pair] = now;
}

bool LoginThrottle::IsTrusted(const std::string& user, const std::string& peer) const {
  return trusted_.contains(Pair(user, peer));
}

}  // namespace kalo::webapid
