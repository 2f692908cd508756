#pragma once

#include <initializer_list>

#include "host/core/unique_fd.h"

namespace kalo {

/// Takes signals by descriptor instead of by handler: blocks them for this process (programs
/// started by kalo::Spawn get an empty mask again).
class SignalQueue {
 public:
  /// @throws std::system_error
  explicit SignalQueue(std::initializer_list<int> signals);

  /// Readable while a signal waits.
  [[nodiscard]] int Fd() const { return fd_.Get(); }
  /// @return the next signal; 0 when none waits. Several of one kind may come as one.
  [[nodiscard]] int Next();

 private:
  UniqueFd fd_;
};

}  // namespace kalo
