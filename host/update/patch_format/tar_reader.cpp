#include "host/update/patch_format/tar_reader.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "host/update/patch_format/archive_library.h"
#include "host/update/patch_format/patch_error.h"

namespace kalo::patch {
namespace {

constexpr std::uint64_t kBlock = 512;
constexpr std::uint64_t kEndMarker = 2 * kBlock;
// Archivers round a file up to their record size; more than that is not padding.
constexpr std::uint64_t kMostPadding = 64UL * 1024;
constexpr std::size_t kReadAtOnce = 256UL * 1024;

using Header = std::array<char, kBlock>;

[[noreturn]] void Fail(const std::string& reason) {
  throw PatchError(VerifyOutcome::kNotAPatch, reason);
}

std::uint64_t RoundUp(std::uint64_t size) {
  return (size + kBlock - 1) / kBlock * kBlock;
}

bool IsRootOrNobody(const char* name) {
  return name == nullptr || *name == '\0' || std::string_view(name) == "root";
}

void CheckKind(archive_entry* entry, const std::string& name) {
  const auto type = Archive().entry_filetype(entry);
  if (Archive().entry_hardlink(entry) != nullptr || Archive().entry_symlink(entry) != nullptr ||
      (type != AE_IFREG && type != AE_IFDIR)) {
    Fail(name + ": neither a regular file nor a folder");
  }
  if (Archive().entry_uid(entry) != 0 || Archive().entry_gid(entry) != 0 ||
      !IsRootOrNobody(Archive().entry_uname(entry)) ||
      !IsRootOrNobody(Archive().entry_gname(entry))) {
    Fail(name + ": not owned by root");
  }
}

TarMember ToMember(archive_entry* entry) {
  const char* name = Archive().entry_pathname(entry);
  if (name == nullptr) Fail("a member without a name");
  TarMember member;
  member.name = name;
  CheckKind(entry, member.name);
  member.is_folder = Archive().entry_filetype(entry) == AE_IFDIR;
  member.mode = Archive().entry_perm(entry);
  const auto size = Archive().entry_size(entry);
  if (size < 0) Fail(member.name + ": negative size");
  member.size = static_cast<std::uint64_t>(size);
  if (!member.is_folder) return member;
  if (member.size != 0) Fail(member.name + ": a folder with data");
  if (member.name.ends_with('/')) member.name.pop_back();
  return member;
}

// The library takes a header's checksum in several spellings. One file, one spelling: no byte of a
// patch may be another than its maker wrote.
void CheckChecksum(const Header& header) {
  constexpr std::size_t kField = 148;
  constexpr std::size_t kFieldSize = 8;
  const std::string_view written(header.data() + kField, kFieldSize);
  unsigned int sum = kFieldSize * ' ';  // the field itself counts as blanks
  for (std::size_t i = 0; i < header.size(); ++i) {
    if (i < kField || i >= kField + kFieldSize) sum += static_cast<unsigned char>(header[i]);
  }
  std::array<char, kFieldSize + 1> right{};
  std::snprintf(right.data(), right.size(), "%06o%c ", sum, '\0');
  if (written != std::string_view(right.data(), kFieldSize)) Fail("a header's checksum is odd");
}

// The library takes a type that it does not know for a regular file, and a folder's size for none.
// Another unpacker would find other members then.
void CheckType(const Header& header) {
  constexpr std::size_t kType = 156;
  constexpr std::size_t kSize = 124;
  constexpr std::size_t kSizeField = 12;
  constexpr std::string_view kNoSize("0 \0", 3);
  const bool is_folder = header[kType] == '5';
  if (!is_folder && header[kType] != '0') Fail("neither a regular file nor a folder");
  const std::string_view size(header.data() + kSize, kSizeField);
  if (is_folder && size.find_first_not_of(kNoSize) != std::string_view::npos) {
    Fail("a folder with data");
  }
}

}  // namespace

void TarReader::Deleter::operator()(archive* reader) const {
  Archive().read_free(reader);
}

TarReader::TarReader(int fd) : fd_(fd), archive_(Archive().read_new()) {
  if (!archive_) throw PatchError(VerifyOutcome::kCannotRead, "no memory to read it", ENOMEM);
  // No filter: a compressed file is not a patch.
  if (Archive().read_support_format_tar(archive_.get()) != ARCHIVE_OK ||
      Archive().read_open_fd(archive_.get(), fd, kReadAtOnce) != ARCHIVE_OK) {
    FailReading("not a tar file");
  }
}

void TarReader::FailReading(const std::string& doing) const {
  const char* cause = Archive().error_string(archive_.get());
  // EILSEQ, EINVAL and -1 stand for what the library finds wrong with the archive itself.
  const int error = Archive().error_number(archive_.get());
  if (error > 0 && error != EILSEQ && error != EINVAL) {
    throw PatchError(VerifyOutcome::kCannotRead, std::strerror(error), error);
  }
  Fail(doing + (cause == nullptr ? "" : std::string(": ") + cause));
}

std::optional<TarMember> TarReader::Next() {
  CheckZeros(data_end_, next_);
  archive_entry* entry = nullptr;
  const int result = Archive().read_next_header(archive_.get(), &entry);
  if (result == ARCHIVE_EOF) {
    CheckEnd();
    return std::nullopt;
  }
  // A warning too: whatever the library had to put right was not written by our writer.
  if (result != ARCHIVE_OK) FailReading("not a plain tar file");
  if (Archive().format(archive_.get()) != ARCHIVE_FORMAT_TAR_USTAR) Fail("not in ustar form");
  CheckHeader(next_);
  TarMember member = ToMember(entry);
  // One header block each: other forms put more of them before a member.
  data_end_ = next_ + kBlock + member.size;
  next_ = RoundUp(data_end_);
  return member;
}

std::size_t TarReader::Read(std::span<char> buffer) {
  const auto count = Archive().read_data(archive_.get(), buffer.data(), buffer.size());
  if (count < 0) FailReading("the file is damaged or cut off");
  return static_cast<std::size_t>(count);
}

void TarReader::CheckHeader(std::uint64_t place) const {
  Header header{};
  const ssize_t count = ::pread(fd_, header.data(), header.size(), static_cast<off_t>(place));
  if (count < 0) throw PatchError(VerifyOutcome::kCannotRead, std::strerror(errno), errno);
  if (count != static_cast<ssize_t>(header.size())) Fail("the file is cut off");
  CheckChecksum(header);
  CheckType(header);
}

void TarReader::CheckZeros(std::uint64_t begin, std::uint64_t end) const {
  std::array<char, 4096> buffer{};
  while (begin < end) {
    const auto wanted = std::min<std::uint64_t>(buffer.size(), end - begin);
    const ssize_t count = ::pread(fd_, buffer.data(), wanted, static_cast<off_t>(begin));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw PatchError(VerifyOutcome::kCannotRead, std::strerror(errno), errno);
    if (count == 0) Fail("the file is cut off");
    if (std::any_of(buffer.begin(), buffer.begin() + count, [](char c) { return c != '\0'; })) {
      Fail("bytes that belong to no member");
    }
    begin += static_cast<std::uint64_t>(count);
  }
}

void TarReader::CheckEnd() const {
  struct stat status {};
  if (::fstat(fd_, &status) != 0) {
    throw PatchError(VerifyOutcome::kCannotRead, std::strerror(errno), errno);
  }
  const auto end = static_cast<std::uint64_t>(status.st_size);
  if (end < next_ + kEndMarker) Fail("the file is cut off");
  if (end > next_ + kMostPadding) Fail("bytes behind the archive's end");
  CheckZeros(next_, end);
}

}  // namespace kalo::patch
