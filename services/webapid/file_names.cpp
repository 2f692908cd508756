#include "services/webapid/file_names.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

#include "host/core/strict_json.h"

namespace kalo::webapid {
namespace {

constexpr std::size_t kLongestFileName = 255;
constexpr std::size_t kLongestParameterName = 256;
constexpr std::string_view kReservedEnd = "_file_tmp";
constexpr std::string_view kFileEnd = "_file";

bool HasControlByte(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
  });
}

std::string ResolvePercent(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned char byte = 0;
    const char* digits = text.data() + i + 1;
    if (text[i] == '%' && text.size() - i > 2 &&
        std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
      result += static_cast<char>(byte);
      i += 2;
    } else {
      result += text[i];
    }
  }
  return result;
}

}  // namespace

std::optional<std::string> SafeFileName(std::string_view sent) {
  const std::size_t slash = sent.find_last_of("/\\");
  const std::string_view name = slash == std::string_view::npos ? sent : sent.substr(slash + 1);
  if (name.empty() || name == "." || name == ".." || name.size() > kLongestFileName) {
    return std::nullopt;
  }
  if (HasControlByte(name) || !IsUtf8(name)) return std::nullopt;
  return std::string(name);
}

bool IsParameterName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestParameterName && !HasControlByte(name) &&
         IsUtf8(name);
}

bool IsReservedParameter(std::string_view name) {
  return name.ends_with(kReservedEnd) || ResolvePercent(name).ends_with(kReservedEnd);
}

bool IsFileField(std::string_view name) {
  return name.size() > kFileEnd.size() && name.ends_with(kFileEnd);
}

}  // namespace kalo::webapid
