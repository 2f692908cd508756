#pragma once

/// Files and file locks of the core C library.
extern "C" {

/// @return non-zero when something is at the path (a dangling link is nothing).
int KLIBCFileExist(const char* path);

/// Takes an exclusive lock on a lock file without waiting; creates the file (0600), never removes
/// it. The descriptor is close-on-exec, so that no program started meanwhile keeps the lock. A
/// forked child shares the lock: it is free when one of the two unlocks it, or when the last of
/// them has ended.
/// @param mode 1: exclusive, do not wait (the only mode)
/// @param fd   receives the descriptor to unlock with; untouched on failure
/// @return 1 when the lock was taken, else 0 (busy, or the file cannot be opened).
int KLIBCFileLockByFile(const char* path, int mode, int* fd);

/// Releases a lock for every process that shares it, and closes the descriptor.
/// @param fd the descriptor, or -1: nothing happens
/// @return 0; -1 with errno set, EBADF for -1.
int KLIBCFileUnlockByFile(int fd);

/// Renames within one file system, replacing what is at the new path.
/// @return 0; -1 with errno set.
int KLIBCSysRename(const char* from, const char* to);

/// Creates a folder and its missing parents. Never follows a symbolic link.
/// @param mode  permission bits; 0 means 0755
/// @param exist 1: a folder that exists already is no failure
/// @param uid   owner of what is created; -1 leaves it
/// @param gid   group of what is created; -1 leaves it
/// @return 0; negative with errno set.
int KALOFSMkdirP(const char* path, int mode, int exist, int uid, int gid);
}
