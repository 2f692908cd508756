#pragma once

#include <cstdio>

/// Processes of the core C library. Programs are started from argument vectors, never through a
/// shell, with a clean environment, default signals and no inherited descriptor above 2. Programs
/// outside /bin and /usr/kalo are not run, but for the updater that the precheck unpacked, which
/// runs confined; when that is impossible or it does not end in time, the call fails and the report
/// says that the upgrade cannot continue.
extern "C" {

/// Forks the calling process as fork(2) does.
/// @param flags 0 (the only value)
/// @return negative with errno set, the child's process id in the parent, 0 in the child.
int KLIBCProcFork(int flags);

/// Runs a program and waits for its end. Unused argument slots are null; the first null ends the
/// list.
/// @return the exit status; 128 + n when signal n ended the program; negative with errno set only
///         when it could not be run (what starting it failed with).
int KLIBCExec(const char* path, const char* arg1, const char* arg2, const char* arg3,
              const char* arg4);

/// Runs a program with a null-terminated argument list and waits for its end.
/// @param flags 187: output discarded, environment cleaned (the only value)
/// @param ...   at most 63 arguments behind the path (else E2BIG)
/// @return as KLIBCExec.
int KLIBCExecl(const char* path, int flags, ...);

/// Starts a program and reads its standard output.
/// @param type "r" (the only value)
/// @param ...  the argument vector from argv[0] on, ended by a null
/// @return a stream to close with KLIBCPclose; null with errno set on failure.
std::FILE* KLIBCPopen(const char* path, const char* type, ...);

/// Closes a stream of KLIBCPopen and waits for the program.
/// @return its exit status; 128 + n when signal n ended it; negative with errno set on failure.
int KLIBCPclose(std::FILE* stream);

/// Reads a process id file: a decimal number, blanks around it or not. It counts only when it is
/// root's, only root can write it, and the process started no later than the file was written.
/// @return the process id; 0 for a file without a valid one; negative with errno set when the file
///         is missing or unreadable.
int KLIBCReadPidFile(const char* path);
}
