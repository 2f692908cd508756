#include "services/webapid/login_throttle.h"

#include <algorithm>

namespace kalo::webapid {
namespace {

constexpr std::chrono::seconds kLongestWait{60};
constexpr std::chrono::hours kForgottenAfter{1};
constexpr std::size_t kMostEntries = 4096;
constexpr unsigned kMostDoublings = 6;

}  // namespace

std::chrono::seconds LoginThrottle::Wait(const std::string& user, const std::string& peer,
                                         Time now) const {
  Time free_at = now;
  if (const auto it = users_.find(user); it != users_.end()) {
    free_at = std::max(free_at, it->second.free_at);
  }
  if (const auto it = peers_.find(peer); it != peers_.end()) {
    free_at = std::max(free_at, it->second.free_at);
  }
  return std::chrono::ceil<std::chrono::seconds>(free_at - now);
}

void LoginThrottle::Count(Entries& entries, const std::string& key, Time now) {
  std::erase_if(entries,
                [now](const auto& entry) { return now - entry.second.last > kForgottenAfter; });
  if (entries.size() >= kMostEntries && !entries.contains(key)) {
    entries.erase(std::min_element(
        entries.begin(), entries.end(),
        [](const auto& a, const auto& b) { return a.second.last < b.second.last; }));
  }
  Entry& entry = entries[key];
  const std::chrono::seconds wait{1 << std::min(entry.failures, kMostDoublings)};
  ++entry.failures;
  entry.last = now;
  entry.free_at = now + std::min(wait, kLongestWait);
}

void LoginThrottle::Failed(const std::string& user, const std::string& peer, Time now) {
  Count(users_, user, now);
  Count(peers_, peer, now);
}

void LoginThrottle::Succeeded(const std::string& user, const std::string& peer) {
  users_.erase(user);
  peers_.erase(peer);
}

}  // namespace kalo::webapid
