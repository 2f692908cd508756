#include "host/update/patch_format/tar_writer.h"

#include <cerrno>

#include "host/update/patch_format/archive_library.h"
#include "host/update/patch_format/manifest.h"
#include "host/update/patch_format/patch_error.h"

namespace kalo::patch {
namespace {

constexpr int kRecord = 10240;

struct EntryDeleter {
  void operator()(archive_entry* entry) const { Archive().entry_free(entry); }
};

}  // namespace

void TarWriter::Deleter::operator()(archive* writer) const {
  Archive().write_free(writer);
}

TarWriter::TarWriter(int fd) : archive_(Archive().write_new()) {
  if (!archive_) throw PatchError(VerifyOutcome::kCannotWrite, "no memory to write it", ENOMEM);
  if (Archive().write_set_format_ustar(archive_.get()) != ARCHIVE_OK ||
      Archive().write_set_bytes_per_block(archive_.get(), kRecord) != ARCHIVE_OK ||
      Archive().write_open_fd(archive_.get(), fd) != ARCHIVE_OK) {
    Fail("the patch");
  }
}

void TarWriter::BeginFile(const std::string& name, std::uint64_t size, mode_t mode) {
  for (std::size_t slash = name.find('/'); slash != std::string::npos;
       slash = name.find('/', slash + 1)) {
    const std::string folder = name.substr(0, slash);
    if (folders_.insert(folder).second) WriteHeader(folder + "/", AE_IFDIR, 0, kFolderMode);
  }
  WriteHeader(name, AE_IFREG, size, mode);
}

void TarWriter::WriteHeader(const std::string& name, unsigned int type, std::uint64_t size,
                            mode_t mode) {
  name_ = name;
  const std::unique_ptr<archive_entry, EntryDeleter> entry(Archive().entry_new2(archive_.get()));
  if (!entry) Fail(name);
  Archive().entry_set_pathname(entry.get(), name.c_str());
  Archive().entry_set_filetype(entry.get(), type);
  Archive().entry_set_perm(entry.get(), mode);
  Archive().entry_set_uid(entry.get(), 0);
  Archive().entry_set_gid(entry.get(), 0);
  Archive().entry_set_size(entry.get(), static_cast<la_int64_t>(size));
  // A time of 1970: the same sources give the same file.
  Archive().entry_set_mtime(entry.get(), 0, 0);
  if (Archive().write_header(archive_.get(), entry.get()) != ARCHIVE_OK) Fail(name);
}

void TarWriter::Write(std::span<const char> bytes) {
  while (!bytes.empty()) {
    const auto count = Archive().write_data(archive_.get(), bytes.data(), bytes.size());
    if (count <= 0) Fail(name_);
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
}

void TarWriter::Finish() {
  if (Archive().write_close(archive_.get()) != ARCHIVE_OK) Fail("the archive's end");
}

void TarWriter::Fail(const std::string& name) const {
  const char* cause = Archive().error_string(archive_.get());
  throw PatchError(VerifyOutcome::kCannotWrite,
                   name + ": " + (cause == nullptr ? "more data than announced" : cause),
                   Archive().error_number(archive_.get()));
}

}  // namespace kalo::patch
