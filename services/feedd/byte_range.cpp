#include "services/feedd/byte_range.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace kalo::feedd {
namespace {

constexpr std::string_view kUnit = "bytes=";

// @return the number; empty for anything but digits.
std::optional<std::uint64_t> Number(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
  return number;
}

}  // namespace

ByteRange ParseByteRange(std::string_view header, std::uint64_t size) {
  using Kind = ByteRange::Kind;
  const ByteRange whole{Kind::kWhole, 0, size};
  if (!header.starts_with(kUnit)) return whole;
  header.remove_prefix(kUnit.size());
  const std::size_t hyphen = header.find('-');
  if (hyphen == std::string_view::npos) return whole;
  const std::string_view from = header.substr(0, hyphen);
  const std::string_view to = header.substr(hyphen + 1);
  if (from.empty()) {  // the last bytes
    const std::optional<std::uint64_t> count = Number(to);
    if (!count) return whole;
    if (*count == 0 || size == 0) return {Kind::kUnsatisfiable, 0, 0};
    const std::uint64_t length = std::min(*count, size);
    return {Kind::kPart, size - length, length};
  }
  const std::optional<std::uint64_t> first = Number(from);
  const std::optional<std::uint64_t> last = to.empty() ? size : Number(to);
  if (!first || !last || (!to.empty() && *last < *first)) return whole;
  if (*first >= size) return {Kind::kUnsatisfiable, 0, 0};
  const std::uint64_t end = std::min(*last, size - 1);
  return {Kind::kPart, *first, end - *first + 1};
}

}  // namespace kalo::feedd
