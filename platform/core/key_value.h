#pragma once

#include <cstddef>

/// Key=value files: one line per key, `key="value"`. The grammar is the product's own; see
/// docs/files.md. Every call opens the file once and leaves nothing open. Readers take no lock;
/// writers replace the whole file by a rename, so a reader sees the old or the new file, never a
/// mixture. All calls may be made from several threads and on both sides of a fork.
///
/// Limits, the same for reading and writing: key 64 bytes, value 8191 bytes, file 256 KiB.
extern "C" {

/// Reads the value of one key; of a key that stands twice the last one counts.
/// @param buffer receives the value and a terminating NUL; empty unless the result is positive
/// @param size   size of buffer in bytes, at least 1
/// @param flags  0
/// @return the value's length (> 0); 0 when the key is absent or its value empty; negative with
///         errno set when the file is missing (ENOENT), refused (ELOOP, EACCES, EINVAL, EFBIG) or
///         the value does not fit (ERANGE; a value is never cut).
int KLIBCFileGetKeyValue(const char* path, const char* key, char* buffer, std::size_t size,
                         int flags);

/// Sets or replaces one key and creates the file (mode 0600) when there is none. Comments, unknown
/// lines and other keys survive. An unchanged value writes nothing.
/// @param flags 0
/// @return 1; negative with errno set on failure, the file then is as it was.
int KLIBCFileSetKeyValue(const char* path, const char* key, const char* value, int flags);

/// Removes every line of one key.
/// @return 0; -1 with errno set: ENOENT when the file or the key is absent.
int KLIBCFileRemoveKey(const char* path, const char* key);

/// Tells whether a key holds exactly this value.
/// @param flags 0, or 1 (accepted with the same meaning)
/// @return 1 when equal, else 0.
int KLIBCFileCheckKeyValue(const char* path, const char* key, const char* value, int flags);

/// Stores one key in the router's configuration "/etc/kaloinfo.conf".
/// @return as KLIBCFileSetKeyValue; -1 on failure.
int KLIBCINFOSetKeyValue(const char* key, const char* value);
}
