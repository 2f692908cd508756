#pragma once

#include <chrono>

namespace kalo::webapid {

/// Whether it pays to wait here and now for a row's answer, told from how its last ones came. Of
/// each row's time only a share is lost to waiting in vain: after one such wait nobody waits for
/// ten times as long, after the next one for twice that, up to a second. One answer that came in
/// time makes up for all.
class Patience {
 public:
  using Clock = std::chrono::steady_clock;

  /// How long to wait.
  static constexpr std::chrono::microseconds kWait{300};

  /// @return whether to wait now.
  [[nodiscard]] bool IsThere(Clock::time_point now) const { return now >= until_; }
  /// An answer came while somebody waited for it.
  void CameInTime() { pause_ = Clock::duration::zero(); }
  /// @param now the time after the wait
  void WaitedInVain(Clock::time_point now);

 private:
  Clock::duration pause_{};
  Clock::time_point until_{};
};

}  // namespace kalo::webapid
