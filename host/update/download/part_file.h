#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "host/core/unique_fd.h"
#include "host/update/https_get.h"
#include "host/update/patch_format/sha256.h"

namespace kalo::download {

/// Told how a transfer goes, and asked whether it is to go on.
struct TransferHooks {
  std::function<bool()> is_wanted;
  std::function<void(std::uint64_t bytes)> on_bytes;  ///< of the file that are there by now
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
  bool GoesOn() override { return hooks_.is_wanted(); }

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
  /// Gives the file its name, and notes on it the hash with which it was found right.
  /// @throws std::system_error
  void Keep(const std::string& path, const std::string& sha256);

 private:
  [[nodiscard]] bool HasSpace() const;

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
