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
/// without the first word, and pure ("76010-3"); the small-update part may be missing. The word
/// before the small-update number may be any.
/// @return empty for any other text, and for a number above 2147483647.
[[nodiscard]] std::optional<VersionNumbers> ParseVersionText(std::string_view text);

/// @return whether the text is a version in display form, which begins with the word VXM.
[[nodiscard]] bool IsDisplayForm(std::string_view text);

/// @return whether a version in display form is a small update's, whatever its number.
[[nodiscard]] bool IsSmallUpdate(std::string_view display);

}  // namespace kalo::patch
