#include "host/core/regular_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "host/core/file_io.h"

namespace kalo {
namespace {

constexpr std::size_t kRoomForUnknownSize = 4096;

}  // namespace

std::optional<RegularFile> RegularFile::Open(int folder, const std::string& path) {
  RegularFile file;
  file.fd = UniqueFd(openat(folder, path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file.fd) {
    if (errno == ENXIO) errno = EINVAL;  // a socket
    return std::nullopt;
  }
  if (fstat(file.fd.Get(), &file.status) != 0) return std::nullopt;
  if (!S_ISREG(file.status.st_mode)) {
    errno = EINVAL;
    return std::nullopt;
  }
  return file;
}

bool RegularFile::IsOurs() const {
  return status.st_uid == 0 || status.st_uid == geteuid();
}

std::optional<std::string> RegularFile::ReadAll(std::size_t limit) const {
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size > limit) {
    errno = EFBIG;
    return std::nullopt;
  }
  // One byte more than the file has: the first read ends short, which is the end of a file with a
  // size. Files of the kernel say 0 and are read until nothing comes.
  std::string text((size > 0 ? size : kRoomForUnknownSize) + 1, '\0');
  std::size_t length = 0;
  while (true) {
    const std::size_t room = text.size() - length;
    const ssize_t got = read(fd.Get(), text.data() + length, room);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    length += static_cast<std::size_t>(got);
    if (length > limit) {
      errno = EFBIG;
      return std::nullopt;
    }
    if (got == 0 || (size > 0 && static_cast<std::size_t>(got) < room)) break;
    if (length == text.size()) text.resize(2 * text.size());
  }
  text.resize(length);
  return text;
}

bool IsNothingThere(int error) {
  return error == ENOENT || error == ELOOP || error == EINVAL || error == EFBIG;
}

std::optional<std::string> ReadFile(const std::string& path, std::size_t limit) {
  const auto file = RegularFile::Open(AT_FDCWD, path);
  if (!file) return std::nullopt;
  return file->ReadAll(limit);
}

}  // namespace kalo
