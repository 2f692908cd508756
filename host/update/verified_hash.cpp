#include "host/update/verified_hash.h"

#include <sys/xattr.h>

#include <array>

namespace kalo {
namespace {

constexpr const char* kAttribute = "user.kalo.sha256";
constexpr std::size_t kDigits = 64;

}  // namespace

bool NoteVerifiedHash(int fd, const std::string& sha256) {
  return fsetxattr(fd, kAttribute, sha256.data(), sha256.size(), 0) == 0;
}

std::optional<std::string> NotedHash(int fd) {
  std::array<char, kDigits> digits{};
  const ssize_t length = fgetxattr(fd, kAttribute, digits.data(), digits.size());
  if (length != static_cast<ssize_t>(digits.size())) return std::nullopt;
  return std::string(digits.data(), digits.size());
}

}  // namespace kalo
