#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>

namespace kalo::webapid {

/// Makes guessing passwords slow: after each wrong one the next try has to wait, twice as long each
/// time up to a minute, for the user name as well as for the address it came from. A user name
/// that does not exist is treated like any other.
class LoginThrottle {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// @return how long this try has to wait; 0: it may go on.
  [[nodiscard]] std::chrono::seconds Wait(const std::string& user, const std::string& peer,
                                          Time now) const;
  void Failed(const std::string& user, const std::string& peer, Time now);
  void Succeeded(const std::string& user, const std::string& peer);

 private:
  struct Entry {
    unsigned failures = 0;
    Time last;
    Time free_at;
  };
  using Entries = std::map<std::string, Entry>;

  static void Count(Entries& entries, const std::string& key, Time now);

  Entries users_;
  Entries peers_;
};

}  // namespace kalo::webapid
