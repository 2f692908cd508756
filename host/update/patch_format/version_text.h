#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kalo::patch {

/// What orders versions: build number first, small-update number second.
struct VersionNumbers {
  std::int32_t build = 0;
  std::int32_t nano = 0;  ///< 0: no small update

  // NOLINTNEXTLINE(modernize-use-nullptr): sees a 0 in what the compiler makes of it
  friend auto operator<=>(const VersionNumbers&, const VersionNumbers&) = default;
};

/// Reads a version text in any of its forms: display ("VXM 1.4.0-76010 Update 3"), the same
/// without the first word, and pure ("76010-3"). The small-update part may be missing, its word may
/// be any ("U2 4"), and its number may be missing ("Beta"); behind VXM the version before the
/// hyphen may be any word ("VXM 2-9346"). An offer's title comes in each of these.
/// @return empty for any other text, and for a number above 2147483647.
[[nodiscard]] std::optional<VersionNumbers> ParseVersionText(std::string_view text);

/// @return whether the text is a version in the display form that lists and patches use: VXM,
/// digits
///         in groups, build, and for a small update a word of letters and its number.
[[nodiscard]] bool IsDisplayForm(std::string_view text);

/// @return whether a version in display form is a small update's, whatever its number.
[[nodiscard]] bool IsSmallUpdate(std::string_view display);

}  // namespace kalo::patch
