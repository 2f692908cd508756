#pragma once

#include <cstddef>
#include <filesystem>
#include <vector>

#include "services/webapid/child_watch.h"

namespace kalo::webapid {

/// Runs the modules' recovery programs, which end what a background task left half done when it
/// died. They are cheap and may run at any time; never two of them at once.
class Recovery {
 public:
  /// @param children borrowed; outlives this object
  Recovery(ChildWatch& children, std::vector<std::filesystem::path> programs);

  /// Starts the programs, one after the other; again when they are running already.
  void Run();

 private:
  void Next();

  ChildWatch& children_;
  std::vector<std::filesystem::path> programs_;
  std::size_t next_ = 0;
  bool running_ = false;
  bool again_ = false;
};

}  // namespace kalo::webapid
