#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "host/core/unique_fd.h"
#include "host/update/https_get.h"
#include "host/update/patch_format/sha256.h"

namespace kalo::download {

/// How a transfer reports what it does, and learns that it is cancelled.
struct TransferHooks {
  Cancellation is_cancelled;
  /// Bytes of the file that are there by now, and its size.
  std::function<void(std::uint64_t bytes, std::uint64_t whole)> on_bytes;
};

/// The half-fetched file of a download: written and hashed in one pass, over several transfers when
/// one breaks off. It is removed unless it was kept.
class PartFile : public BodySink {
 public:
  /// Drops what an earlier download may have left at the path.
  /// @param size  what the whole file has
  /// @throws std::system_error
  PartFile(std::string path, std::uint64_t size, const TransferHooks& hooks);
  PartFile(const PartFile&) = delete;
  PartFile& operator=(const PartFile&) = delete;
  ~PartFile() override;

  bool Begin(std::uint64_t from, const std::string& tag) override;
  bool Take(std::string_view piece) override;

  /// @return what to ask for to get the rest: all of it when the server has no name for its
  ///         contents.
  [[nodiscard]] HttpsRequest Rest(const std::string& url) const;
  /// @return whether there is no space for the file.
  [[nodiscard]] bool LacksSpace() const { return lacks_space_; }
  /// @return whether the server went on with something that is not the rest of what is there.
  [[nodiscard]] bool IsForeign() const { return foreign_; }
  [[nodiscard]] std::uint64_t Size() const { return size_; }

  /// @return the SHA-256 of what is there. Nothing can be added afterwards without StartAnew.
  [[nodiscard]] std::string TakeHash() { return hash_.Finish(); }
  /// Drops what is there.
  /// @return false with errno set on failure.
  bool StartAnew();
  /// Writes the file to the disk and gives it its name, and notes on it the hash with which it was
  /// found right.
  /// @return false if the job was cancelled meanwhile: the file goes.
  /// @throws std::system_error
  [[nodiscard]] bool Keep(const std::string& path, const std::string& sha256);

 private:
  [[nodiscard]] bool HasSpace() const;
  [[nodiscard]] bool Sync() const;

  std::string path_;
  std::uint64_t whole_;
  const TransferHooks& hooks_;
  UniqueFd fd_;
  patch::Sha256 hash_;
  std::uint64_t size_ = 0;
  std::uint64_t checked_at_ = 0;
  std::string tag_;
  bool lacks_space_ = false;
  bool foreign_ = false;
  bool kept_ = false;
};

}  // namespace kalo::download
