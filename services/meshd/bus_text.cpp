#include "services/meshd/bus_text.h"

#include "host/core/strict_json.h"

namespace kalo::meshd {
namespace {

constexpr std::size_t kLongest = 1024;

bool IsContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
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
