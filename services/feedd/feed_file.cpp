#include "services/feedd/feed_file.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace kalo::feedd {
namespace {

int OpenBeneath(int folder, const std::string& path) {
  open_how how{};
  how.flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  return static_cast<int>(syscall(SYS_openat2, folder, path.c_str(), &how, sizeof(how)));
}

}  // namespace

std::optional<FeedFile> FeedFile::Open(int folder, const std::string& path) {
  FeedFile file;
  file.fd = UniqueFd(OpenBeneath(folder, path));
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
