#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "host/core/file_lock.h"
#include "host/update/feed/release_list.h"
#include "host/update/patch_format/key_ring.h"
#include "host/update/patch_format/signing_key.h"

namespace kalo::patch_tool {

/// The folder from which a web server serves the update feed (docs/feed.md). Held locked while this
/// object lives: one publication at a time. Every file is replaced in one step, so that a router
/// that asks meanwhile finds the old or the new one. Methods throw std::runtime_error.
class FeedTree {
 public:
  /// @param folder made when it is missing
  explicit FeedTree(const std::filesystem::path& folder);

  /// @return the list of a model; empty when there is none yet. One that is not signed by the key
  ///         is refused: publishing would put the key's name under what somebody else wrote.
  [[nodiscard]] std::optional<feed::ReleaseList> ReadList(const std::string& unique,
                                                          const patch::KeyRing& keys) const;

  /// Copies a patch file to its place, unless it is there already.
  /// @param file as the list will name it
  void PutPatch(const std::filesystem::path& from, const feed::ListedFile& file) const;

  /// Signs and writes a model's list, then the version-2 documents that follow from it.
  void PutList(const feed::ReleaseList& list, const patch::SigningKey& key) const;

 private:
  void PutDocuments(const feed::ReleaseList& list) const;
  void Put(const std::filesystem::path& path, const std::string& contents) const;

  std::filesystem::path folder_;
  std::optional<FileLock> lock_;
};

}  // namespace kalo::patch_tool
