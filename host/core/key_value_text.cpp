#include "host/core/key_value_text.h"

#include <vector>

#include "host/core/key_value_line.h"

namespace kalo {
namespace {

// Where a line of the wanted key stands: from its first byte to behind its end.
struct Extent {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::string_view raw;
};

// Calls visit(extent) for each line of the key.
template <typename Visit>
void ForEachLineOf(std::string_view key, std::string_view text, Visit visit) {
  if (!IsKey(key)) return;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t newline = text.find('\n', begin);
    const bool ended = newline != std::string_view::npos;
    const std::size_t length = (ended ? newline : text.size()) - begin;
    const std::size_t end = begin + length + (ended ? 1 : 0);
    if (const auto raw = RawValue(text.substr(begin, length), key)) {
      visit(Extent{begin, end, *raw});
    }
    begin = end;
  }
}

std::vector<Extent> LinesOf(std::string_view key, std::string_view text) {
  std::vector<Extent> lines;
  ForEachLineOf(key, text, [&lines](const Extent& line) { lines.push_back(line); });
  return lines;
}

// @return the text without these lines, and with another in the place of the last of them.
std::string Replaced(std::string_view text, const std::vector<Extent>& lines,
                     std::string_view replacement) {
  std::string result;
  result.reserve(text.size() + replacement.size());
  std::size_t kept = 0;
  for (const Extent& line : lines) {
    result += text.substr(kept, line.begin - kept);
    kept = line.end;
  }
  result += replacement;
  result += text.substr(kept);
  return result;
}

}  // namespace

std::optional<std::string> KeyValueText::Get(std::string_view key) const {
  std::optional<std::string_view> last;
  ForEachLineOf(key, text_, [&last](const Extent& line) { last = line.raw; });
  if (!last) return std::nullopt;
  return DecodeValue(*last);
}

bool KeyValueText::Set(std::string_view key, std::string_view value) {
  if (!IsKey(key) || value.size() > kMaxValueLength || value.find('\0') != std::string_view::npos) {
    return false;
  }
  const std::string line = EncodeLine(key, value);
  const auto lines = LinesOf(key, text_);
  if (!lines.empty()) {
    text_ = Replaced(text_, lines, line);
    return true;
  }
  if (!text_.empty() && text_.back() != '\n') text_ += '\n';
  text_ += line;
  return true;
}

bool KeyValueText::Remove(std::string_view key) {
  const auto lines = LinesOf(key, text_);
  if (lines.empty()) return false;
  text_ = Replaced(text_, lines, "");
  return true;
}

}  // namespace kalo
