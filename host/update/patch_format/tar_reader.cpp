#include "host/update/patch_format/tar_reader.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "host/update/patch_format/patch_error.h"

namespace kalo::patch {
namespace {

[[noreturn]] void Fail(const std::string& reason) {
  throw PatchError(VerifyOutcome::kNotAPatch, reason);
}

[[noreturn]] void FailReading() {
  throw PatchError(VerifyOutcome::kCannotRead, std::strerror(errno), errno);
}

bool IsZeros(std::span<const char> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](char c) { return c == '\0'; });
}

}  // namespace

std::optional<TarMember> TarReader::Next() {
  const std::uint64_t begin = WholeTarBlocks(data_end_);
  CheckZeros(data_end_, begin);
  TarHeader header{};
  if (ReadAt(begin, header) < header.size()) Fail("the file is cut off");
  place_ = data_end_ = begin;
  if (IsZeros(header)) {
    CheckEnd();
    return std::nullopt;
  }
  std::optional<TarMember> member = ReadTarHeader(header);
  if (!member) Fail("a header is not a plain one of a file or folder of root's");
  place_ = begin + kTarBlock;
  data_end_ = place_ + member->size;
  return member;
}

std::size_t TarReader::Read(std::span<char> buffer) {
  buffer = buffer.first(std::min<std::uint64_t>(buffer.size(), data_end_ - place_));
  const std::size_t count = ReadAt(place_, buffer);
  if (count < buffer.size()) Fail("the file is cut off");
  place_ += count;
  return count;
}

// Reads until the buffer is full or the file ends.
std::size_t TarReader::ReadAt(std::uint64_t place, std::span<char> buffer) const {
  std::size_t done = 0;
  while (done < buffer.size()) {
    const ssize_t count =
        ::pread(fd_, buffer.data() + done, buffer.size() - done, static_cast<off_t>(place + done));
    if (count == 0) break;
    if (count < 0 && errno != EINTR) FailReading();
    if (count > 0) done += static_cast<std::size_t>(count);
  }
  return done;
}

// Of one end of a block, or of the archive.
void TarReader::CheckZeros(std::uint64_t begin, std::uint64_t end) const {
  std::array<char, kTarBlock + kTarEnd> buffer{};
  const auto bytes = std::span(buffer).first(end - begin);
  if (ReadAt(begin, bytes) < bytes.size()) Fail("the file is cut off");
  if (!IsZeros(bytes)) Fail("bytes that belong to no member");
}

void TarReader::CheckEnd() const {
  struct stat status {};
  if (::fstat(fd_, &status) != 0) FailReading();
  const auto end = static_cast<std::uint64_t>(status.st_size);
  const std::uint64_t right = WholeTarBlocks(data_end_) + kTarEnd;
  if (end < right) Fail("the file is cut off");
  if (end > right) Fail("bytes behind the archive's end");
  CheckZeros(data_end_, end);
}

}  // namespace kalo::patch
