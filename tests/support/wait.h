#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace kalo::test {

/// Longer than anything takes on a loaded machine: only a failing test waits so long.
inline constexpr std::chrono::milliseconds kLongWait{20000};

/// Waits until a condition holds: looks often, gives up at the deadline.
/// @return whether it came to hold.
[[nodiscard]] inline bool WaitFor(const std::function<bool()>& condition,
                                  std::chrono::milliseconds deadline = kLongWait) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace kalo::test
