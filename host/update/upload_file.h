#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "host/core/unique_fd.h"
#include "host/update/patch_format/sha256.h"

namespace kalo {

/// A file on its way to a node. What goes out is hashed: a file that is no longer what was verified
/// (NoteVerifiedHash) is never sent to its end, so that no node spends its time on it.
class UploadFile {
 public:
  /// @throws std::runtime_error when it cannot be read or is no regular file; links are not
  ///         followed.
  explicit UploadFile(std::string path);

  [[nodiscard]] std::uint64_t Size() const { return size_; }

  /// @return the bytes read, 0 at the end; empty when reading failed or the contents are not the
  ///         verified ones.
  [[nodiscard]] std::optional<std::size_t> Read(std::span<char> buffer);

  /// Begins anew: the transfer library does so when a kept connection turns out dead.
  [[nodiscard]] bool Rewind();

  /// Why Read failed; empty when it did not.
  [[nodiscard]] const std::string& Trouble() const { return trouble_; }

 private:
  std::string path_;
  UniqueFd fd_;
  std::uint64_t size_ = 0;
  std::uint64_t sent_ = 0;
  std::optional<std::string> verified_;
  patch::Sha256 hash_;
  std::string trouble_;
};

}  // namespace kalo
