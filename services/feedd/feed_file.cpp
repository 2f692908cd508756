#include "services/feedd/feed_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <iterator>

namespace kalo::feedd {
namespace {

// Name by name: openat2 does it in one call, but a feed may lie on a server whose kernel is older.
UniqueFd OpenBeneath(int folder, const std::filesystem::path& path) {
  if (path.native().find('\0') != std::string::npos) return UniqueFd();
  UniqueFd at;
  for (auto name = path.begin(); name != path.end(); ++name) {
    if (*name == ".." || name->has_root_directory()) return UniqueFd();
    const int kind = std::next(name) == path.end() ? O_NONBLOCK : O_DIRECTORY | O_PATH;
    at = UniqueFd(
        openat(at ? at.Get() : folder, name->c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | kind));
    if (!at) break;
  }
  return at;
}

}  // namespace

std::optional<FeedFile> FeedFile::Open(int folder, const std::string& path) {
  FeedFile file;
  file.fd = OpenBeneath(folder, path);
  struct stat status {};
  if (!file.fd || fstat(file.fd.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  file.size = static_cast<std::uint64_t>(status.st_size);
  file.modified = status.st_mtime;
  return file;
}

std::string FeedFile::ETag() const {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "\"%llx-%llx\"",
                static_cast<unsigned long long>(modified), static_cast<unsigned long long>(size));
  return text.data();
}

std::string FeedFile::LastModified() const {
  std::tm utc{};
  gmtime_r(&modified, &utc);
  std::array<char, 40> text{};
  const std::size_t length =
      std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &utc);
  return {text.data(), length};
}

}  // namespace kalo::feedd
