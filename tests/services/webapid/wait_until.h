#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace kalo::test {

/// Waits for a condition.
/// @return false when it does not come true within ten seconds.
[[nodiscard]] inline bool WaitUntil(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (std::chrono::steady_clock::now() < deadline) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return false;
}

}  // namespace kalo::test
