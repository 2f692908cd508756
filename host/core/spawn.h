#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace kalo {

struct SpawnOptions {
  int stdin_fd = -1;   ///< -1: /dev/null
  int stdout_fd = -1;  ///< -1: /dev/null
  int stderr_fd = -1;  ///< -1: the caller's
  int pass_fd = -1;    ///< becomes descriptor 3 of the program; -1: none
  bool own_session = false;
  std::string name = {};  ///< argv[0] as the program sees it; empty: its path
};

/// Starts a program by posix_spawn: argument vector, no shell; clean environment (PATH, HOME, LANG
/// only), default signal dispositions, empty signal mask, no inherited descriptor above 2 but
/// pass_fd.
/// @param argv argv[0] is the absolute path of the program, and what it sees unless options.name
///             says otherwise
/// @return the process id, which the caller reaps; negative with errno set when it did not start.
[[nodiscard]] pid_t Spawn(const std::vector<std::string>& argv, const SpawnOptions& options = {});

/// How a process ended.
struct ProcessEnd {
  bool by_signal = false;
  int number = -1;  ///< exit status or signal; -1 with errno set when nobody could wait for it
};

/// Waits for a process.
[[nodiscard]] ProcessEnd WaitForEnd(pid_t pid);

/// Waits for a process.
/// @return its exit status; 128 + n when signal n ended it; -1 with errno set.
[[nodiscard]] int WaitForExit(pid_t pid);

}  // namespace kalo
