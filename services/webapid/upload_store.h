#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string_view>

#include "host/core/unique_fd.h"

namespace kalo::webapid {

/// The files of one request, in a folder of its own that goes with this object.
class UploadFolder {
 public:
  explicit UploadFolder(std::filesystem::path path) : path_(std::move(path)) {}
  UploadFolder(const UploadFolder&) = delete;
  UploadFolder& operator=(const UploadFolder&) = delete;
  UploadFolder(UploadFolder&& other) noexcept;
  UploadFolder& operator=(UploadFolder&&) = delete;
  ~UploadFolder();

  /// Ends the current file and starts the next one (0600).
  /// @return its path; empty with errno set when it cannot be made.
  [[nodiscard]] std::optional<std::filesystem::path> StartFile();
  /// Appends to the current file.
  /// @return false with errno set, e.g. ENOSPC.
  [[nodiscard]] bool Append(std::string_view data);
  /// @return false when the last bytes of the current file could not be kept.
  [[nodiscard]] bool Close();

 private:
  std::filesystem::path path_;
  std::size_t files_ = 0;
  UniqueFd current_;
};

/// The place where uploads wait for the module that takes them over: one folder for root only.
class UploadStore {
 public:
  explicit UploadStore(std::filesystem::path folder) : folder_(std::move(folder)) {}

  /// Makes the place, and removes what requests of an earlier server left in it.
  /// @return false with errno set when it cannot be used; what is in the way is then still there.
  [[nodiscard]] bool Prepare() const;
  /// @return empty with errno set when there is no room.
  [[nodiscard]] std::optional<UploadFolder> MakeFolder() const;

 private:
  std::filesystem::path folder_;
};

}  // namespace kalo::webapid
