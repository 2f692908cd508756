#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The maker's list of the releases of one hardware model: a JSON document beside which lies its
/// Ed25519 signature. docs/feed.md has it member by member.
namespace kalo::feed {

inline constexpr std::int32_t kWholeShare = 10000;

/// One patch file as the list names it.
struct ListedFile {
  std::string path;  ///< below the feed's base address, without a slash at the start
  std::uint64_t size = 0;
  std::string sha256;  ///< 64 lower-case hexadecimal digits
};

/// One release: a full firmware, or a small update on top of one.
struct Release {
  std::string version;  ///< display form, "VXM 1.4.0-76010"; a small update's ends in " Update N"
  std::int32_t build = 0;
  std::int32_t nano = 0;
  std::string phase;   ///< "Beta", or empty for a finished release
  std::string groups;  ///< rollout groups that it has reached: digits, ascending, each once
  ListedFile file;
  std::map<std::string, std::string> notes{};  ///< what is new, for people: language -> text
  /// Ten-thousandths of all routers that it may reach, within its groups.
  std::int32_t share = kWholeShare;

  /// @return whether it is a small update; its number may be 0.
  [[nodiscard]] bool IsSmall() const;
  /// @return whether every router may have it: finished, and rolled out to all groups.
  [[nodiscard]] bool IsForAll() const;
};

inline constexpr std::size_t kLongestNotes = 8191;  ///< bytes, in one language
inline constexpr std::string_view kBeta = "Beta";
inline constexpr std::string_view kAllGroups = "0123456789";

struct ReleaseList {
  std::string unique;                      ///< the model
  std::int32_t number = 0;                 ///< rises with each publication
  std::int64_t expires = 0;                ///< seconds since 1970, after which it counts no more
  std::vector<Release> releases;           ///< by build, the full release first, then by number
  std::vector<std::int32_t> stones;        ///< builds at which every update from below must stop
  std::vector<std::int32_t> field_builds;  ///< builds that routers run and that are no release here
};

/// @param name names the document in error texts
/// @throws FormatError when a member is missing or breaks a rule. Members that it does not know are
///         passed over: a later feed may have more.
[[nodiscard]] ReleaseList ParseReleaseList(const std::string& text, const std::string& name);

/// @return the document, ending in a line end: what is signed.
[[nodiscard]] std::string WriteReleaseList(const ReleaseList& list);

/// @param version a version text in any of its forms; with " Update " or a number of its own it
///                names a small update
/// @return null when the list has no such release.
[[nodiscard]] const Release* FindRelease(const ReleaseList& list, const std::string& version);

/// @return whether a version text names a small update, whose number may be 0.
[[nodiscard]] bool NamesSmallUpdate(const std::string& version);

/// Returns the pure version number form: "76010" of a full version, "9346-2" of a small update.
/// @return empty if the text is not a version.
[[nodiscard]] std::optional<std::string> PureVersion(const std::string& version);

/// Brings releases, stones and builds into their order.
void SortReleaseList(ReleaseList& list);

}  // namespace kalo::feed
