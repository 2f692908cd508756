#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "host/core/unique_fd.h"

namespace kalo::feedd {

/// A file of the feed, open for reading.
struct FeedFile {
  UniqueFd fd;
  std::uint64_t size = 0;
  std::time_t modified = 0;

  /// Never leaves the folder and never follows a link.
  /// @param folder descriptor of the feed's folder
  /// @return empty when there is no such regular file.
  [[nodiscard]] static std::optional<FeedFile> Open(int folder, const std::string& path);

  /// @return what caches and resumed downloads know the contents by. Publishing replaces files, and
  ///         never a patch's contents.
  [[nodiscard]] std::string ETag() const;
  /// @return the time of the last change as HTTP writes it.
  [[nodiscard]] std::string LastModified() const;
};

}  // namespace kalo::feedd
