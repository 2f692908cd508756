#include "fuzz/described_tar.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>

#include "tests/support/tar_header.h"

namespace kalo::fuzz {
namespace {

constexpr std::size_t kMostMembers = 24;
constexpr std::size_t kNameField = 100;
constexpr std::size_t kPrefixField = 155;
constexpr std::size_t kOwnerField = 32;
constexpr std::size_t kMagicField = 8;
constexpr std::string_view kPlainMagic("ustar\00000", kMagicField);
constexpr std::uint64_t kLargestSize = 077777777777;
constexpr std::uint64_t kLargestNumber = 0777777;

std::string TakeWord(std::string_view& line) {
  const std::size_t end = std::min(line.find(' '), line.size());
  std::string word(line.substr(0, end));
  line.remove_prefix(std::min(end + 1, line.size()));
  return word;
}

std::uint64_t NumberOf(std::string_view text, int base, std::uint64_t largest) {
  std::uint64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number, base);
  return std::min(number, largest);
}

void TakeOption(DescribedMember& member, std::string_view word) {
  const std::size_t end = std::min(word.find('='), word.size());
  const std::string_view key = word.substr(0, end);
  const std::string value(word.substr(std::min(end + 1, word.size())));
  if (key == "prefix") member.prefix = value.substr(0, kPrefixField);
  if (key == "link") member.link = value.substr(0, kNameField);
  if (key == "owner") member.owner = value.substr(0, kOwnerField);
  if (key == "uid") member.uid = static_cast<unsigned>(NumberOf(value, 10, kLargestNumber));
  if (key == "gid") member.gid = static_cast<unsigned>(NumberOf(value, 10, kLargestNumber));
  if (key == "magic") member.magic = value.substr(0, kMagicField);
  if (key == "data") member.data = value;
  if (key == "size") member.size = NumberOf(value, 10, kLargestSize);
  if (key == "padding") member.padding = value.empty() ? '\0' : value.front();
  if (key == "listed") member.listed_name = value;
  if (key == "unlisted") member.is_listed = false;
}

DescribedMember ReadLine(std::string_view line) {
  DescribedMember member;
  member.magic = kPlainMagic;
  const std::string type = TakeWord(line);
  if (!type.empty()) member.type = type.front();
  member.mode = static_cast<unsigned>(NumberOf(TakeWord(line), 8, kLargestNumber));
  member.name = TakeWord(line).substr(0, kNameField);
  // Folders are not listed, nor are the manifest and what signs it.
  member.is_listed = member.type != '5' && !member.name.starts_with("manifest.");
  while (!line.empty()) TakeOption(member, TakeWord(line));
  return member;
}

std::string Header(const DescribedMember& member) {
  return test::TarHeader({.name = member.name,
                          .prefix = member.prefix,
                          .link = member.link,
                          .owner = member.owner,
                          .magic = member.magic,
                          .type = member.type,
                          .mode = member.mode,
                          .uid = member.uid,
                          .gid = member.gid,
                          .size = member.ClaimedSize()});
}

// A field of text ends with its first zero.
std::string FieldText(const std::string& field) {
  return field.substr(0, field.find('\0'));
}

}  // namespace

std::string DescribedMember::FullName() const {
  const std::string before = FieldText(prefix);
  if (before.empty()) return FieldText(name);
  return before + (before.ends_with('/') ? "" : "/") + FieldText(name);
}

std::string DescribedMember::ListedName() const {
  return listed_name.empty() ? FullName() : listed_name;
}

std::uint64_t DescribedMember::ClaimedSize() const {
  return size.value_or(data ? data->size() : 0);
}

unsigned DescribedMember::Permissions() const {
  return mode & ~static_cast<unsigned>(S_IFMT);
}

bool DescribedMember::IsPlain() const {
  return (type == '0' || type == '5') && uid == 0 && gid == 0 && owner.empty() && link.empty();
}

std::vector<DescribedMember> ReadDescription(std::string_view text) {
  std::vector<DescribedMember> members;
  while (!text.empty() && members.size() < kMostMembers) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    members.push_back(ReadLine(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return members;
}

BuiltTar BuildTar(const std::vector<DescribedMember>& members) {
  BuiltTar tar;
  for (const DescribedMember& member : members) {
    tar.headers.emplace(tar.bytes.size(), &member);
    tar.bytes += Header(member) + member.data.value_or("");
    tar.bytes.resize(test::WholeTarBlocks(tar.bytes.size()), member.padding);
  }
  tar.bytes.append(2 * test::kTarBlock, '\0');
  return tar;
}

}  // namespace kalo::fuzz
