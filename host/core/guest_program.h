#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>

namespace kalo {

/// A program that is no part of the system: it came with a patch, so whatever it does, it may only
/// cost so much time and so much output.
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

}  // namespace kalo
