#pragma once

#include <sys/types.h>

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kalo::patch {

inline constexpr std::string_view kManifestName = "manifest.json";
inline constexpr std::string_view kSignatureName = "manifest.sig";
inline constexpr std::string_view kVersionName = "VERSION";
inline constexpr std::string_view kUpdaterName = "updater";
inline constexpr std::string_view kTextsPrefix = "texts/";
inline constexpr std::string_view kPayloadPrefix = "payload/";
inline constexpr std::size_t kSignatureBytes = 64;
inline constexpr std::size_t kLargestManifest = 1024UL * 1024;
inline constexpr std::size_t kLargestVersion = 4UL * 1024;
inline constexpr std::size_t kMostMembers = 20000;
inline constexpr mode_t kFolderMode = 0755;
inline constexpr mode_t kFileMode = 0644;
inline constexpr mode_t kProgramMode = 0755;

/// One regular file as the manifest lists it.
struct ListedMember {
  std::string name;
  std::uint64_t size = 0;
  std::string sha256;  ///< 64 lower-case hexadecimal digits
  mode_t mode = 0;     ///< kFileMode or kProgramMode

  [[nodiscard]] bool IsPayload() const { return name.starts_with(kPayloadPrefix); }
};

/// The order of folders in the file: each comes right before the first file that it holds.
class FolderOrder {
 public:
  /// @return the file's folders that no file before it needed, outermost first, without a slash at
  /// the end.
  [[nodiscard]] std::vector<std::string> NewFor(std::string_view file);

 private:
  std::set<std::string, std::less<>> seen_;
};

/// The signed list: VERSION, updater, the texts, the payload, in this order, which is also the
/// order in the file.
struct Manifest {
  std::vector<ListedMember> members;

  [[nodiscard]] std::uint64_t TotalBytes() const;
  /// @return the folders that hold listed members, without a slash at the end.
  [[nodiscard]] std::set<std::string, std::less<>> Folders() const;
};

/// Reads a manifest and checks each of its rules: form, names, order, sizes, nothing twice.
/// @throws PatchError (kBadManifest)
[[nodiscard]] Manifest ParseManifest(std::string_view text);

/// @return the text that is signed.
/// @throws PatchError (kBadManifest) when the manifest breaks a rule.
[[nodiscard]] std::string WriteManifest(const Manifest& manifest);

}  // namespace kalo::patch
