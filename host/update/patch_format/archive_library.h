#pragma once

#include <archive.h>
#include <archive_entry.h>

namespace kalo::patch {

/// The archive library's functions, by their names without "archive_".
///
/// It is loaded when it is used first: with all that it needs itself, for forms that no patch has,
/// it takes half a megabyte of every worker's memory, and few requests read a patch.
struct ArchiveLibrary {
  decltype(&archive_read_new) read_new;
  decltype(&archive_read_free) read_free;
  decltype(&archive_read_support_format_tar) read_support_format_tar;
  decltype(&archive_read_open_fd) read_open_fd;
  decltype(&archive_read_next_header) read_next_header;
  decltype(&archive_read_data) read_data;
  decltype(&archive_errno) error_number;
  decltype(&archive_error_string) error_string;
  decltype(&archive_format) format;
  decltype(&archive_entry_filetype) entry_filetype;
  decltype(&archive_entry_hardlink) entry_hardlink;
  decltype(&archive_entry_symlink) entry_symlink;
  decltype(&archive_entry_uid) entry_uid;
  decltype(&archive_entry_gid) entry_gid;
  decltype(&archive_entry_uname) entry_uname;
  decltype(&archive_entry_gname) entry_gname;
  decltype(&archive_entry_pathname) entry_pathname;
  decltype(&archive_entry_perm) entry_perm;
  decltype(&archive_entry_size) entry_size;
  decltype(&archive_entry_new2) entry_new2;
  decltype(&archive_entry_free) entry_free;
  decltype(&archive_entry_set_filetype) entry_set_filetype;
  decltype(&archive_entry_set_gid) entry_set_gid;
  decltype(&archive_entry_set_uid) entry_set_uid;
  decltype(&archive_entry_set_mtime) entry_set_mtime;
  decltype(&archive_entry_set_pathname) entry_set_pathname;
  decltype(&archive_entry_set_perm) entry_set_perm;
  decltype(&archive_entry_set_size) entry_set_size;
  decltype(&archive_write_new) write_new;
  decltype(&archive_write_free) write_free;
  decltype(&archive_write_close) write_close;
  decltype(&archive_write_data) write_data;
  decltype(&archive_write_header) write_header;
  decltype(&archive_write_open_fd) write_open_fd;
  decltype(&archive_write_set_bytes_per_block) write_set_bytes_per_block;
  decltype(&archive_write_set_format_ustar) write_set_format_ustar;
};

/// @return the library, ready for use.
/// @throws PatchError when it cannot be loaded; the next call tries again
[[nodiscard]] const ArchiveLibrary& Archive();

}  // namespace kalo::patch
