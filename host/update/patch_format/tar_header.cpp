#include "host/update/patch_format/tar_header.h"

#include <algorithm>
#include <charconv>
#include <numeric>
#include <string_view>

namespace kalo::patch {
namespace {

struct Field {
  std::size_t offset;
  std::size_t size;
};
constexpr Field kName{0, 100};
constexpr Field kMode{100, 6};
constexpr Field kUser{108, 6};
constexpr Field kGroup{116, 6};
constexpr Field kSize{124, 11};
constexpr Field kTime{136, 11};
constexpr Field kChecksum{148, 8};
constexpr Field kChecksumDigits{148, 6};
constexpr Field kType{156, 1};
constexpr Field kMagic{257, 8};
constexpr Field kDeviceMajor{329, 6};
constexpr Field kDeviceMinor{337, 6};
constexpr Field kPrefix{345, 155};
constexpr std::string_view kUstar("ustar\00000", kMagic.size);
constexpr int kOctal = 8;
constexpr mode_t kLargestMode = 07777;
constexpr std::uint64_t kLargestSize = 077777777777;

void PutText(TarHeader& header, Field field, std::string_view text) {
  std::copy(text.begin(), text.end(), header.begin() + field.offset);
}

// Octal digits that fill the field, then what ends them.
void PutNumber(TarHeader& header, Field field, std::uint64_t number, std::string_view end) {
  PutText(header, {field.offset + field.size, end.size()}, end);
  for (std::size_t i = field.size; i-- > 0; number /= kOctal) {
    header[field.offset + i] = static_cast<char>('0' + number % kOctal);
  }
}

// A name that is too long for its field goes on at a slash: what comes before it is the prefix.
bool PutName(TarHeader& header, const std::string& name) {
  if (name.empty() || name.find('\0') != std::string::npos) return false;
  if (name.size() <= kName.size) {
    PutText(header, kName, name);
    return true;
  }
  const std::size_t first = name.size() - kName.size - 1;
  const std::size_t slash = name.find('/', std::max<std::size_t>(first, 1));
  if (slash == std::string::npos || slash + 1 == name.size() || slash > kPrefix.size) return false;
  if (name[slash - 1] == '/') return false;  // unpackers disagree on what it means
  PutText(header, kPrefix, std::string_view(name).substr(0, slash));
  PutText(header, kName, std::string_view(name).substr(slash + 1));
  return true;
}

std::string_view View(const TarHeader& header, Field field) {
  return {header.data() + field.offset, field.size};
}

std::string TextOf(const TarHeader& header, Field field) {
  const std::string_view text = View(header, field);
  return std::string(text.substr(0, text.find('\0')));
}

std::uint64_t NumberOf(const TarHeader& header, Field field) {
  const std::string_view digits = View(header, field);
  std::uint64_t number = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), number, kOctal);
  return number;
}

unsigned ChecksumOf(const TarHeader& header) {
  return std::accumulate(header.begin(), header.end(), 0U,
                         [](unsigned sum, char c) { return sum + static_cast<unsigned char>(c); });
}

}  // namespace

std::optional<TarHeader> MakeTarHeader(const TarMember& member) {
  TarHeader header{};
  if (!PutName(header, member.is_folder ? member.name + "/" : member.name) ||
      member.mode > kLargestMode || member.size > kLargestSize ||
      (member.is_folder && member.size != 0)) {
    return std::nullopt;
  }
  constexpr std::string_view kShortEnd(" \0", 2);
  PutNumber(header, kMode, member.mode, kShortEnd);
  PutNumber(header, kUser, 0, kShortEnd);
  PutNumber(header, kGroup, 0, kShortEnd);
  PutNumber(header, kSize, member.size, " ");
  // A time of 1970: the same sources give the same file.
  PutNumber(header, kTime, 0, " ");
  PutText(header, kType, member.is_folder ? "5" : "0");
  PutText(header, kMagic, kUstar);
  PutNumber(header, kDeviceMajor, 0, kShortEnd);
  PutNumber(header, kDeviceMinor, 0, kShortEnd);
  PutText(header, kChecksum, "        ");  // counted as blanks
  PutNumber(header, kChecksumDigits, ChecksumOf(header), std::string_view("\0 ", 2));
  return header;
}

std::optional<TarMember> ReadTarHeader(const TarHeader& header) {
  TarMember member;
  const std::string prefix = TextOf(header, kPrefix);
  member.name = (prefix.empty() ? "" : prefix + "/") + TextOf(header, kName);
  member.is_folder = View(header, kType) == "5";
  member.size = NumberOf(header, kSize);
  member.mode = static_cast<mode_t>(NumberOf(header, kMode));
  if (member.is_folder && member.name.ends_with('/')) member.name.pop_back();
  if (MakeTarHeader(member) != header) return std::nullopt;
  return member;
}

}  // namespace kalo::patch
