#include "host/update/patch_format/archive_library.h"

#include <cerrno>
#include <stdexcept>

#include "host/core/shared_library.h"
#include "host/update/patch_format/patch_error.h"

namespace kalo::patch {
namespace {

ArchiveLibrary Load() {
  // The one that the headers belong to.
  const SharedLibrary file(KALO_ARCHIVE_SONAME, "the archive library");
  ArchiveLibrary archive{};
  file.Find("archive_read_new", archive.read_new);
  file.Find("archive_read_free", archive.read_free);
  file.Find("archive_read_support_format_tar", archive.read_support_format_tar);
  file.Find("archive_read_open_fd", archive.read_open_fd);
  file.Find("archive_read_next_header", archive.read_next_header);
  file.Find("archive_read_data", archive.read_data);
  file.Find("archive_errno", archive.error_number);
  file.Find("archive_error_string", archive.error_string);
  file.Find("archive_format", archive.format);
  file.Find("archive_entry_filetype", archive.entry_filetype);
  file.Find("archive_entry_hardlink", archive.entry_hardlink);
  file.Find("archive_entry_symlink", archive.entry_symlink);
  file.Find("archive_entry_uid", archive.entry_uid);
  file.Find("archive_entry_gid", archive.entry_gid);
  file.Find("archive_entry_uname", archive.entry_uname);
  file.Find("archive_entry_gname", archive.entry_gname);
  file.Find("archive_entry_pathname", archive.entry_pathname);
  file.Find("archive_entry_perm", archive.entry_perm);
  file.Find("archive_entry_size", archive.entry_size);
  file.Find("archive_entry_new2", archive.entry_new2);
  file.Find("archive_entry_free", archive.entry_free);
  file.Find("archive_entry_set_filetype", archive.entry_set_filetype);
  file.Find("archive_entry_set_gid", archive.entry_set_gid);
  file.Find("archive_entry_set_uid", archive.entry_set_uid);
  file.Find("archive_entry_set_mtime", archive.entry_set_mtime);
  file.Find("archive_entry_set_pathname", archive.entry_set_pathname);
  file.Find("archive_entry_set_perm", archive.entry_set_perm);
  file.Find("archive_entry_set_size", archive.entry_set_size);
  file.Find("archive_write_new", archive.write_new);
  file.Find("archive_write_free", archive.write_free);
  file.Find("archive_write_close", archive.write_close);
  file.Find("archive_write_data", archive.write_data);
  file.Find("archive_write_header", archive.write_header);
  file.Find("archive_write_open_fd", archive.write_open_fd);
  file.Find("archive_write_set_bytes_per_block", archive.write_set_bytes_per_block);
  file.Find("archive_write_set_format_ustar", archive.write_set_format_ustar);
  return archive;
}

}  // namespace

// That it cannot be loaded says nothing of the patch.
const ArchiveLibrary& Archive() try {
  static const ArchiveLibrary kLibrary = Load();
  return kLibrary;
} catch (const std::runtime_error& e) {
  throw PatchError(VerifyOutcome::kCannotRead, e.what(), ELIBACC);
}

}  // namespace kalo::patch
