#include "host/update/download/part_file.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "host/update/verified_hash.h"

namespace kalo::download {
namespace {

constexpr std::uint64_t kCheckEvery = std::uint64_t{8} << 20;

[[noreturn]] void Fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

PartFile::PartFile(std::string path, std::uint64_t size, const TransferHooks& hooks)
    : path_(std::move(path)), whole_(size), hooks_(hooks) {
  if (unlink(path_.c_str()) != 0 && errno != ENOENT) Fail(path_);
  fd_ = UniqueFd(open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!fd_) Fail(path_);
}

PartFile::~PartFile() {
  if (!kept_) unlink(path_.c_str());
}

bool PartFile::Begin(std::uint64_t from, const std::string& tag) {
  foreign_ = from > 0 && (from != size_ || tag != tag_);
  if (foreign_ || (from == 0 && !StartAnew())) return false;
  tag_ = tag;
  return true;
}

bool PartFile::StartAnew() {
  tag_.clear();
  if (size_ == 0) return true;
  size_ = 0;
  checked_at_ = 0;
  (void)hash_.Finish();
  return ftruncate(fd_.Get(), 0) == 0 && lseek(fd_.Get(), 0, SEEK_SET) == 0;
}

bool PartFile::Take(std::string_view piece) {
  if (size_ >= checked_at_) {
    checked_at_ = size_ + kCheckEvery;
    lacks_space_ = !HasSpace();
    if (lacks_space_) return false;
  }
  hash_.Update(piece);
  if (!WriteAll(fd_.Get(), piece)) {
    lacks_space_ = errno == ENOSPC || errno == EDQUOT;
    Log(LOG_ERR, "%s: %s", path_.c_str(), std::strerror(errno));
    return false;
  }
  size_ += piece.size();
  hooks_.on_bytes(size_, whole_);
  return true;
}

bool PartFile::HasSpace() const {
  struct statvfs found {};
  if (fstatvfs(fd_.Get(), &found) != 0) return true;  // writing will tell
  const std::uint64_t free = static_cast<std::uint64_t>(found.f_bavail) * found.f_frsize;
  return size_ >= whole_ || free >= whole_ - size_;
}

HttpsRequest PartFile::Rest(const std::string& url) const {
  if (tag_.empty()) return {url, 0, ""};
  return {url, size_, tag_};
}

// In slices: a whole patch takes a slow disk many seconds, in which nothing could cancel it. The
// slices only wait for the disk; what counts is the last call.
bool PartFile::Sync() const {
  constexpr std::uint64_t kSlice = std::uint64_t{1} << 20;
  constexpr unsigned kWriteAndWait =
      SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
  for (std::uint64_t from = 0; from < size_; from += kSlice) {
    if (hooks_.is_cancelled()) return false;
    (void)sync_file_range(fd_.Get(), static_cast<off64_t>(from), kSlice, kWriteAndWait);
  }
  if (fdatasync(fd_.Get()) != 0) Fail(path_);
  return !hooks_.is_cancelled();
}

bool PartFile::Keep(const std::string& path, const std::string& sha256) {
  (void)NoteVerifiedHash(fd_.Get(), sha256);
  if (!Sync()) return false;
  if (rename(path_.c_str(), path.c_str()) != 0) Fail(path);
  kept_ = true;
  return true;
}

}  // namespace kalo::download
