#pragma once

#include <sys/types.h>

namespace kalo::webapid {

/// Sees every fork(2) that code inside a request makes, tried or successful, and cuts each child
/// off from the worker's channel at once: a child must never answer, and the front must see the
/// end of a worker although a child of it lives on. posix_spawn, popen and system are not seen;
/// what they start holds no lock of the worker.
///
/// One process has one watch, made before its first request: fork handlers cannot be taken back.
class ForkWatch {
 public:
  /// @param channel the descriptor that children close; -1: none
  /// @throws std::system_error
  explicit ForkWatch(int channel);
  ForkWatch(const ForkWatch&) = delete;
  ForkWatch& operator=(const ForkWatch&) = delete;
  ~ForkWatch();

  /// @return whether this process, or the one it was forked from, called fork(2) since the watch
  ///         was made; with or without success.
  [[nodiscard]] bool Forked() const;
  /// @return whether this is a child of the process that made the watch.
  [[nodiscard]] bool InChild() const;

 private:
  pid_t maker_;
};

}  // namespace kalo::webapid
