#pragma once

#include <sys/resource.h>
#include <unistd.h>

namespace kalo::test {

/// As long as it lives this process can open nothing: what a read then fails with is gone the next
/// time.
class NoDescriptors {
 public:
  /// @param but so many descriptors it can open all the same, such as that of a lock
  explicit NoDescriptors(rlim_t but = 0) {
    getrlimit(RLIMIT_NOFILE, &usual_);
    const int next = dup(STDIN_FILENO);
    close(next);
    const rlimit few{static_cast<rlim_t>(next) + but, usual_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
  }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &usual_); }

 private:
  rlimit usual_{};
};

}  // namespace kalo::test
