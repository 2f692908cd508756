#pragma once

#include <sys/types.h>

#include <string>

#include "host/core/unique_fd.h"

namespace kalo::patch {

/// A file that appears at its path whole or not at all: written under another name in the same
/// folder, which is removed unless Commit() was reached. Methods throw PatchError (kCannotWrite).
class AtomicOutput {
 public:
  AtomicOutput(std::string path, mode_t mode);
  AtomicOutput(const AtomicOutput&) = delete;
  AtomicOutput& operator=(const AtomicOutput&) = delete;
  ~AtomicOutput();

  /// @return the descriptor to write to, which the object goes on owning.
  [[nodiscard]] int Fd() const { return fd_.Get(); }

  /// Puts the file in its place.
  void Commit();

 private:
  [[noreturn]] void Fail() const;

  std::string path_;
  std::string temporary_;
  UniqueFd fd_;
};

}  // namespace kalo::patch
