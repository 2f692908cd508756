#pragma once

#include <chrono>
#include <optional>

namespace kalo::faults {

/// Whether a job is told as running although its process is gone: five seconds somebody has to
/// notice.
class DeadJob {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds kTold{5};

  /// @param asked when the answer was asked for that tells of the job: a slow one is no second lie
  /// @return whether it is told still, so long after it was told of a dead job first.
  [[nodiscard]] bool IsToldTooLong(Clock::time_point asked, bool is_told, bool is_alive) {
    if (!is_told || is_alive) {
      dead_since_.reset();
      return false;
    }
    if (!dead_since_) dead_since_ = Clock::now();
    return asked - *dead_since_ > kTold;
  }

 private:
  std::optional<Clock::time_point> dead_since_;
};

}  // namespace kalo::faults
