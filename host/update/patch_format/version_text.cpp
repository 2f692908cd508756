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
bool IsVisible(char c) {
  return c > ' ' && c <= '~';
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

// Takes the version behind the mark and its hyphen, which may be any word: "2-", "1.4.0rc-".
bool TakeAnyVersion(std::string_view& text) {
  const std::size_t hyphen = text.find('-');
  if (hyphen == std::string_view::npos || hyphen == 0) return false;
  if (!std::all_of(text.begin(), text.begin() + hyphen, IsVisible)) return false;
  text.remove_prefix(hyphen + 1);
  return true;
}

// Takes " Update", " U2" or any other word with a blank before it.
bool TakeWord(std::string_view& text) {
  if (!text.starts_with(' ')) return false;
  const auto* const end = std::find_if_not(text.begin() + 1, text.end(), IsVisible);
  const auto length = static_cast<std::size_t>(end - text.begin());
  text.remove_prefix(length);
  return length > 1;
}

}  // namespace

std::optional<VersionNumbers> ParseVersionText(std::string_view text) {
  if (text.size() > kLongestText) return std::nullopt;
  const bool display = text.starts_with(kMark);
  if (display) text.remove_prefix(kMark.size());
  const bool is_named = display ? TakeAnyVersion(text) : TakeMarketingVersion(text);
  if (display && !is_named) return std::nullopt;
  const std::optional<std::int32_t> build = TakeNumber(text);
  if (!build) return std::nullopt;
  if (is_named && !text.empty() && !TakeWord(text)) return std::nullopt;
  if (text.empty()) return VersionNumbers{*build, 0};
  if (!text.starts_with(is_named ? ' ' : '-')) return std::nullopt;
  text.remove_prefix(1);
  const std::optional<std::int32_t> nano = TakeNumber(text);
  if (!nano || !text.empty()) return std::nullopt;
  return VersionNumbers{*build, *nano};
}

bool IsDisplayForm(std::string_view text) {
  if (!text.starts_with(kMark) || !ParseVersionText(text)) return false;
  text.remove_prefix(kMark.size());
  if (!TakeMarketingVersion(text)) return false;
  const std::string_view word = text.substr(std::min(text.find(' '), text.size()));
  if (word.empty()) return true;
  const auto* const end = std::find_if_not(word.begin() + 1, word.end(), IsLetter);
  return end != word.end() && *end == ' ';
}

bool IsSmallUpdate(std::string_view display) {
  return display.find(" Update ") != std::string_view::npos;
}

}  // namespace kalo::patch
