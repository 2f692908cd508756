#include "services/meshd/bus_text.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace kalo::meshd {
namespace {

constexpr std::size_t kLongest = 1024;

bool IsContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

// @return bytes of the character at the front of the text; 0 when it is not UTF-8.
std::size_t CharacterSize(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  if (first < 0x80) return 1;
  const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < size) return 0;
  if (!std::all_of(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(size),
                   IsContinuation)) {
    return 0;
  }
  const auto second = static_cast<unsigned char>(text[1]);
  const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool surrogate = first == 0xED && second >= 0xA0;
  const bool beyond = first == 0xF4 && second >= 0x90;
  return overlong || surrogate || beyond ? 0 : size;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t size = CharacterSize(text);
    if (size == 0) return false;
    text.remove_prefix(size);
  }
  return true;
}

}  // namespace

std::string BusText(std::string text) {
  if (text.size() > kLongest) {
    std::size_t end = kLongest;
    while (end > 0 && IsContinuation(text[end])) --end;
    text.resize(end);
  }
  const bool utf8 = IsUtf8(text);
  for (char& c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) c = ' ';
    if (byte >= 0x80 && !utf8) c = '?';
  }
  return text;
}

}  // namespace kalo::meshd
