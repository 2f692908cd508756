#include "tests/support/tar_header.h"

#include <algorithm>
#include <numeric>
#include <string_view>

namespace kalo::test {
namespace {

constexpr std::size_t kChecksum = 148;

void Put(std::string& header, std::size_t offset, std::string_view field) {
  header.replace(offset, field.size(), field);
}

}  // namespace

std::string Octal(std::uint64_t number, std::size_t digits) {
  std::string text(digits, '0');
  for (auto digit = text.rbegin(); digit != text.rend(); ++digit, number /= 8) {
    *digit = static_cast<char>('0' + number % 8);
  }
  return text;
}

std::string TarHeader(const TarFields& fields) {
  std::string header(kTarBlock, '\0');
  Put(header, 0, fields.name);
  const std::string end(" \0", 2);
  Put(header, 100, Octal(fields.mode, 6) + end);
  Put(header, 108, Octal(fields.uid, 6) + end);
  Put(header, 116, Octal(fields.gid, 6) + end);
  Put(header, 124, Octal(fields.size, 11) + " ");
  Put(header, 136, Octal(0, 11) + " ");
  header[156] = fields.type;
  Put(header, 157, fields.link);
  Put(header, 257, fields.magic);
  Put(header, 265, fields.owner);
  Put(header, 329, Octal(0, 6) + end);
  Put(header, 337, Octal(0, 6) + end);
  Put(header, 345, fields.prefix);
  PutChecksum(header);
  return header;
}

void PutChecksum(std::span<char> header) {
  constexpr std::string_view kBlanks = "        ";
  std::copy(kBlanks.begin(), kBlanks.end(), header.begin() + kChecksum);
  const auto sum = std::accumulate(header.begin(), header.end(), 0U, [](unsigned total, char c) {
    return total + static_cast<unsigned char>(c);
  });
  const std::string field = Octal(sum, 6) + std::string("\0 ", 2);
  std::copy(field.begin(), field.end(), header.begin() + kChecksum);
}

}  // namespace kalo::test
