#pragma once

#include <sys/types.h>

#include <span>
#include <string>

#include "host/core/unique_fd.h"

namespace kalo::patch {

/// Fills an empty folder with files, one after the other. Everything is opened relative to the
/// folder's descriptor and no link is followed, whatever happens to the tree meanwhile. Every
/// method throws PatchError (kCannotWrite).
class PayloadFolder {
 public:
  /// @param path an existing, empty folder
  explicit PayloadFolder(const std::string& path);

  /// Makes the folders that lead to a file (0755) and the file itself, which must not exist.
  /// @param name relative, checked: no "..", nothing empty
  void Begin(const std::string& name);
  void Write(std::span<const char> bytes);
  /// Gives the file its mode and closes it.
  void End(mode_t mode);

  /// Waits until all is on the disk.
  void Sync() const;

 private:
  UniqueFd folder_;
  UniqueFd file_;
  std::string name_;
};

}  // namespace kalo::patch
