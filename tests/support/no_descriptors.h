#pragma once

#include <sys/resource.h>

namespace kalo::test {

/// As long as it lives this process can open nothing: what a read then fails with is gone the next
/// time.
class NoDescriptors {
 public:
  NoDescriptors() {
    getrlimit(RLIMIT_NOFILE, &usual_);
    const rlimit none{0, usual_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &usual_); }

 private:
  rlimit usual_{};
};

}  // namespace kalo::test
