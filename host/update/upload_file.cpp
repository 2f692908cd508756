#include "host/update/upload_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "host/update/verified_hash.h"

namespace kalo {

UploadFile::UploadFile(std::string path)
    : path_(std::move(path)),
      fd_(::open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)) {
  struct stat status {};
  if (!fd_ || ::fstat(fd_.Get(), &status) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot read " + path_);
  }
  if (!S_ISREG(status.st_mode)) throw std::runtime_error(path_ + " is not a regular file");
  size_ = static_cast<std::uint64_t>(status.st_size);
  verified_ = NotedHash(fd_.Get());
}

std::optional<std::size_t> UploadFile::Read(std::span<char> buffer) {
  const auto wanted = std::min<std::uint64_t>(buffer.size(), size_ - sent_);
  if (wanted == 0) return 0;
  ssize_t got = 0;
  do {
    got = ::read(fd_.Get(), buffer.data(), wanted);
  } while (got < 0 && errno == EINTR);
  if (got <= 0) {
    trouble_ = path_ + (got < 0 ? std::string(": ") + std::strerror(errno) : " became shorter");
    return std::nullopt;
  }
  const auto count = static_cast<std::size_t>(got);
  sent_ += count;
  if (!verified_) return count;
  hash_.Update(buffer.first(count));
  // Before the last piece goes out: without it the node has no whole request.
  if (sent_ < size_ || hash_.Finish() == *verified_) return count;
  trouble_ = path_ + " is not what was verified";
  return std::nullopt;
}

bool UploadFile::Rewind() {
  sent_ = 0;
  (void)hash_.Finish();
  return ::lseek(fd_.Get(), 0, SEEK_SET) == 0;
}

}  // namespace kalo
