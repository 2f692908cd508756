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

}  // namespace kalo
