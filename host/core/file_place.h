#pragma once

#include <optional>
#include <string>

#include "host/core/unique_fd.h"

namespace kalo {

/// Where a file lies: its folder, held open, and its name in there. Reading, replacing and locking
/// through one place all mean the same folder, even when somebody renames it meanwhile.
struct FilePlace {
  UniqueFd folder;
  std::string name;

  /// @return empty with errno set: EINVAL for a path that ends in no file name, or what opening
  ///         the folder failed with.
  [[nodiscard]] static std::optional<FilePlace> Of(const std::string& path);
};

/// What other users can do in a folder.
enum class FolderSecurity {
  kOurs,    ///< nothing: only its owner, root or this process's user, adds and removes files
  kSticky,  ///< add files, as in /tmp, but not remove or replace ours
  kNone,    ///< replace ours too, or what it holds could not be learned
};
[[nodiscard]] FolderSecurity SecurityOf(int folder);

}  // namespace kalo
