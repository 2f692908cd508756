#pragma once

#include <chrono>
#include <functional>
#include <map>

namespace kalo::box {

/// Calls back when descriptors become readable. One thread; a call-back may add and remove
/// descriptors, its own too.
class EventLoop {
 public:
  using Callback = std::function<void()>;

  /// Watches a descriptor, which stays the caller's and is removed before it is closed.
  void Add(int fd, Callback callback);
  void Remove(int fd);
  /// Waits at most this long for something to happen and calls back for all that did.
  void Turn(std::chrono::milliseconds at_most);

 private:
  std::map<int, Callback> callbacks_;
};

}  // namespace kalo::box
