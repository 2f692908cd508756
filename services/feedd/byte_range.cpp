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
  constexpr ByteRange kNone{Kind::kUnsatisfiable, 0, 0};
  if (!header.starts_with(kUnit) || header.find(',') != std::string_view::npos) {
    return {Kind::kWhole, 0, size};
  }
  header.remove_prefix(kUnit.size());
  const std::size_t hyphen = header.find('-');
  if (hyphen == std::string_view::npos) return kNone;
  const std::string_view from = header.substr(0, hyphen);
  const std::string_view to = header.substr(hyphen + 1);
  if (from.empty()) {  // the last bytes
    const std::uint64_t length = std::min(Number(to).value_or(0), size);
    return length == 0 ? kNone : ByteRange{Kind::kPart, size - length, length};
  }
  const std::optional<std::uint64_t> first = Number(from);
  const std::optional<std::uint64_t> last = to.empty() ? size : Number(to);
  if (!first || !last || *first >= size || *last < *first) return kNone;
  const std::uint64_t end = std::min(*last, size - 1);
  return {Kind::kPart, *first, end - *first + 1};
}

}  // namespace kalo::feedd
