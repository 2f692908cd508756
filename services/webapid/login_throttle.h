#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <utility>

namespace kalo::webapid {

/// Makes guessing passwords slow: after each wrong password the next try has to wait, twice as long
/// each time up to a minute, both for this user from this address and for the address as a whole.
/// What other addresses do never delays anybody: else anyone could keep the owner out. A user name
/// that does not exist is treated like any other.
class LoginThrottle {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// @return how long this try has to wait; 0: it may go on.
  [[nodiscard]] std::chrono::seconds Wait(const std::string& user, const std::string& peer,
                                          Time now) const;
  void Failed(const std::string& user, const std::string& peer, Time now);
  void Succeeded(const std::string& user, const std::string& peer, Time now);
  /// @return whether this user has signed in from this address before.
  [[nodiscard]] bool IsTrusted(const std::string& user, const std::string& peer) const;

 private:
  struct Entry {
    unsigned failures = 0;
    Time last;
    Time free_at;
  };
  using Pair = std::pair<std::string, std::string>;

  template <typename Key>
  static void Count(std::map<Key, Entry>& entries, const Key& key, Time now);

  std::map<Pair, Entry> pairs_;  // of user and address
  std::map<std::string, Entry> peers_;
  std::map<Pair, Time> trusted_;
};

}  // namespace kalo::webapid
