#pragma once

#include <optional>

#include "host/core/unique_fd.h"

namespace kalo::box {

/// Goes on in the background once all is ready. Without Fork() nothing of it happens.
class Detached {
 public:
  /// Forks. The child returns at once and works; the parent waits until the child is ready or ends.
  /// @return in the parent: its exit status. In the child: empty.
  /// @throws std::system_error
  [[nodiscard]] std::optional<int> Fork();

  /// Lets the parent end, and lets go of the terminal.
  void SayReady();

 private:
  UniqueFd ready_;
};

}  // namespace kalo::box
