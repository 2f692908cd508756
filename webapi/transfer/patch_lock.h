#pragma once

#include "platform/core/file.h"
#include "platform/paths.h"

namespace KALO::MESH::Webapi {

/// The lock that keeps downloads and uploads apart, held until destroyed. Not for a holder that
/// forks: its parent's end of scope would free the lock that its child still needs.
class PatchLock {
 public:
  PatchLock() : taken_(KLIBCFileLockByFile(paths::kPatchLock, 1, &fd_) != 0) {}
  PatchLock(const PatchLock&) = delete;
  PatchLock& operator=(const PatchLock&) = delete;
  /// Also called for a lock that was not taken, with -1, which is harmless.
  ~PatchLock() { KLIBCFileUnlockByFile(fd_); }

  /// @return whether this object holds the lock; it does not wait for it.
  [[nodiscard]] bool IsTaken() const { return taken_; }

 private:
  int fd_ = -1;
  bool taken_;
};

}  // namespace KALO::MESH::Webapi
