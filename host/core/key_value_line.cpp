#include "host/core/key_value_line.h"

#include <algorithm>
#include <cstddef>

#include "host/core/key_value_text.h"

namespace kalo {
namespace {

constexpr std::string_view kEscapedByBackslash = "\\\"$`";
constexpr std::size_t kOctalLength = 5;  // \0ooo
constexpr unsigned char kFirstPrintable = 0x20;
constexpr unsigned char kDelete = 0x7f;

bool IsNameStart(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool IsControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < kFirstPrintable || byte == kDelete;
}

bool IsBlank(std::string_view text) {
  return text.find_first_not_of(" \t\r") == std::string_view::npos;
}

void AppendOctal(std::string& text, char c) {
  const auto byte = static_cast<unsigned char>(c);
  text += "\\0";
  for (const int shift : {6, 3, 0}) text += static_cast<char>('0' + ((byte >> shift) & 7));
}

// @return the byte that an escape of the form \0ooo at the start of the text stands for; 0: none.
char OctalByte(std::string_view text) {
  if (text.size() < kOctalLength || !text.starts_with("\\0")) return '\0';
  unsigned value = 0;
  for (const char c : text.substr(2, 3)) {
    if (c < '0' || c > '7') return '\0';
    value = 8 * value + static_cast<unsigned>(c - '0');
  }
  return value <= 0xff ? static_cast<char>(value) : '\0';
}

std::optional<std::string> DecodeDoubleQuoted(std::string_view raw) {
  std::string value;
  value.reserve(raw.size());
  for (std::size_t i = 1; i < raw.size(); ++i) {
    if (raw[i] == '"') {
      if (IsBlank(raw.substr(i + 1))) return value;
      return std::nullopt;
    }
    if (raw[i] != '\\') {
      value += raw[i];
    } else if (i + 1 < raw.size() &&
               kEscapedByBackslash.find(raw[i + 1]) != std::string_view::npos) {
      value += raw[++i];
    } else if (const char byte = OctalByte(raw.substr(i)); byte != '\0') {
      value += byte;
      i += kOctalLength - 1;
    } else {
      value += '\\';
    }
  }
  return std::nullopt;
}

std::optional<std::string> DecodeSingleQuoted(std::string_view raw) {
  const std::size_t end = raw.find('\'', 1);
  if (end == std::string_view::npos || !IsBlank(raw.substr(end + 1))) return std::nullopt;
  return std::string(raw.substr(1, end - 1));
}

}  // namespace

bool IsKey(std::string_view text) {
  return !text.empty() && text.size() <= kMaxKeyLength && IsNameStart(text.front()) &&
         std::all_of(text.begin(), text.end(),
                     [](char c) { return IsNameStart(c) || c == '-' || c == '.'; });
}

std::optional<std::string_view> RawValue(std::string_view line, std::string_view key) {
  if (line.size() <= key.size() || line[key.size()] != '=' || !line.starts_with(key)) {
    return std::nullopt;
  }
  return line.substr(key.size() + 1);
}

std::string DecodeValue(std::string_view raw) {
  std::optional<std::string> value;
  if (raw.starts_with('"')) value = DecodeDoubleQuoted(raw);
  if (raw.starts_with('\'')) value = DecodeSingleQuoted(raw);
  return value ? *std::move(value) : std::string(raw);
}

std::string EncodeLine(std::string_view key, std::string_view value) {
  std::string line(key);
  line.reserve(key.size() + value.size() + 4);
  line += "=\"";
  for (const char c : value) {
    if (IsControl(c)) {
      AppendOctal(line, c);
      continue;
    }
    if (kEscapedByBackslash.find(c) != std::string_view::npos) line += '\\';
    line += c;
  }
  line += "\"\n";
  return line;
}

}  // namespace kalo
