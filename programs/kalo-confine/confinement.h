#pragma once

#include <string>
#include <vector>

namespace kalo::confine {

struct Outcome {
  int wait_status = 0;  ///< of waitpid(2)
  std::string report;   ///< what the program wrote to /run/customized_reason; empty: nothing
};

/// Runs the updater of a patch to its end: as a user that owns nothing, without rights, network or
/// other processes, in a root of its own, and ends with it all that it started.
/// @param folder where updater, VERSION, texts and their signed list were unpacked
/// @param words  the program's arguments from argv[0] on
/// @throws std::runtime_error when it was not run as it must be; it then was not run, or what it
///         wrote does not count
[[nodiscard]] Outcome RunConfined(int folder, const std::vector<std::string>& words);

}  // namespace kalo::confine
