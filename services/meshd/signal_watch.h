#pragma once

#include <functional>
#include <thread>

namespace kalo::meshd {

/// Keeps SIGTERM and SIGINT from this thread and from those it makes later, for a SignalWatch to
/// take. To be called before the first thread is made.
void BlockEndSignals();

/// Turns the first of these signals into a call on a thread of its own.
class SignalWatch {
 public:
  /// @param stop what it refers to must outlive the watch; also called for a signal that came
  ///             before, and at the latest when the watch is destroyed
  explicit SignalWatch(std::function<void()> stop);
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;
  ~SignalWatch();

 private:
  std::thread thread_;
};

}  // namespace kalo::meshd
