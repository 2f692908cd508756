#include "host/update/patch_format/tar_writer.h"

#include <cerrno>
#include <cstring>

#include "host/core/file_io.h"
#include "host/update/patch_format/patch_error.h"

namespace kalo::patch {

void TarWriter::BeginFile(const std::string& name, std::uint64_t size, mode_t mode) {
  EndFile();
  for (const std::string& folder : folders_.NewFor(name)) {
    WriteHeader({.name = folder, .is_folder = true, .mode = kFolderMode});
  }
  WriteHeader({.name = name, .size = size, .mode = mode});
  missing_ = size;
}

void TarWriter::WriteHeader(const TarMember& member) {
  name_ = member.name;
  const auto header = MakeTarHeader(member);
  if (!header) {
    throw PatchError(VerifyOutcome::kCannotWrite, name_ + ": name or size is too long for a patch");
  }
  Put({header->data(), header->size()});
}

void TarWriter::Write(std::span<const char> bytes) {
  if (bytes.size() > missing_) {
    throw PatchError(VerifyOutcome::kCannotWrite, name_ + ": more data than announced");
  }
  Put({bytes.data(), bytes.size()});
  missing_ -= bytes.size();
}

void TarWriter::EndFile() {
  if (missing_ > 0) {
    throw PatchError(VerifyOutcome::kCannotWrite, name_ + ": less data than announced");
  }
  Put(std::string(WholeTarBlocks(written_) - written_, '\0'));
}

void TarWriter::Finish() {
  EndFile();
  Put(std::string(kTarEnd, '\0'));
}

void TarWriter::Put(std::string_view bytes) {
  if (!WriteAll(fd_, bytes)) {
    throw PatchError(VerifyOutcome::kCannotWrite, name_ + ": " + std::strerror(errno), errno);
  }
  written_ += bytes.size();
}

}  // namespace kalo::patch
