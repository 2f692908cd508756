#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "host/core/unique_fd.h"

namespace kalo {

/// A program that is not part of the system: it came with a patch, so whatever it does, it may only
/// look, report, and cost so much time and so much output.
[[nodiscard]] bool IsGuestProgram(const std::string& path);

struct GuestLimits {
  std::chrono::milliseconds whole{120000};
  std::size_t output_bytes = std::size_t{1} << 20;
};

/// Waits for a program that leads a process group of its own, and ends the whole group, whoever in
/// it is left.
/// @param pid    its leader, which the caller reaps
/// @param output a pipe's end from which its output is copied; -1: it has none
/// @param copy   a file that receives the output
/// @return whether it came to its own end; false with errno set when it did not: ETIMEDOUT, EFBIG
///         for too much output, or what copying failed with.
[[nodiscard]] bool WaitForGuest(pid_t pid, int output, int copy, const GuestLimits& limits = {});

/// The updater of a patch, run by kalo-confine.
class ConfinedUpdater {
 public:
  /// Starts it.
  /// @param argv      argv[0] is the updater that the precheck unpacked: no other guest is run
  /// @param name      argv[0] as the program sees it
  /// @param stdout_fd receives its output; -1: nothing does
  ConfinedUpdater(const std::vector<std::string>& argv, const std::string& name, int stdout_fd);

  /// @return the process, which the caller reaps; negative: it did not start.
  [[nodiscard]] pid_t Pid() const { return pid_; }

  /// Waits for it as WaitForGuest does. When it did not start, was not run confined, or reached its
  /// time limit, the report says that the upgrade cannot continue: a check that the host ended is
  /// not a passed one.
  /// @return whether it came to its own end; false with errno set when it did not.
  [[nodiscard]] bool Wait(int output, int copy, const GuestLimits& limits = {}) const;

 private:
  pid_t pid_ = -1;
  int error_ = 0;
  bool is_updater_;
  std::string language_;
  UniqueFd word_;
};

}  // namespace kalo
