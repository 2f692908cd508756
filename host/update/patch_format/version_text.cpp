#include "host/update/patch_format/version_text.h"

#include <algorithm>
#include <charconv>

namespace kalo::patch {
namespace {

// Longer texts are no versions: every buffer that versions pass through holds less.
constexpr std::size_t kLongestText = 256;
constexpr std::string_view kMark = "VXM ";

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}
bool IsLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::optional<std::int32_t> TakeNumber(std::string_view& text) {
  if (text.empty() || !IsDigit(text.front())) return std::nullopt;
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

// Takes "1.4.0-": digits in groups, at least two. @return false and the text untouched when there
// is none.
bool TakeMarketingVersion(std::string_view& text) {
  std::string_view rest = text;
  bool dotted = false;
  for (;;) {
    const auto* const end = std::find_if_not(rest.begin(), rest.end(), IsDigit);
    if (end == rest.begin() || end == rest.end()) return false;
    const char separator = *end;
    rest.remove_prefix(static_cast<std::size_t>(end - rest.begin()) + 1);
    if (separator == '-' && dotted) break;
    if (separator != '.') return false;
    dotted = true;
  }
  text = rest;
  return true;
}

bool TakeUpdateWord(std::string_view& text) {
  if (!text.starts_with(' ')) return false;
  const auto* const end = std::find_if_not(text.begin() + 1, text.end(), IsLetter);
  if (end == text.begin() + 1 || end == text.end() || *end != ' ') return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.begin()) + 1);
  return true;
}

}  // namespace

std::optional<VersionNumbers> ParseVersionText(std::string_view text) {
  if (text.size() > kLongestText) return std::nullopt;
  const bool display = text.starts_with(kMark);
  if (display) text.remove_prefix(kMark.size());
  const bool marketing = TakeMarketingVersion(text);
  if (display && !marketing) return std::nullopt;
  const std::optional<std::int32_t> build = TakeNumber(text);
  if (!build) return std::nullopt;
  if (text.empty()) return VersionNumbers{*build, 0};
  if (marketing) {
    if (!TakeUpdateWord(text)) return std::nullopt;
  } else {
    if (!text.starts_with('-')) return std::nullopt;
    text.remove_prefix(1);
  }
  const std::optional<std::int32_t> nano = TakeNumber(text);
  if (!nano || !text.empty()) return std::nullopt;
  return VersionNumbers{*build, *nano};
}

bool IsDisplayForm(std::string_view text) {
  return text.starts_with(kMark) && ParseVersionText(text).has_value();
}

bool IsSmallUpdate(std::string_view display) {
  return display.find(" Update ") != std::string_view::npos;
}

}  // namespace kalo::patch
