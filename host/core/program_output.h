#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace kalo {

/// Starts a program whose standard output the caller reads; its error output goes nowhere. One that
/// came with a patch (IsGuestProgram) runs to its end first, within its limits.
/// @param argv argv[0] is the program's absolute path
/// @param name argv[0] as the program sees it
/// @return a stream for CloseProgramOutput; null with errno set: it did not start, or it reached a
///         limit (ETIMEDOUT, EFBIG) and was ended.
[[nodiscard]] std::FILE* OpenProgramOutput(const std::vector<std::string>& argv,
                                           const std::string& name);

/// Closes the stream and waits for the program.
/// @return as WaitForExit.
int CloseProgramOutput(std::FILE* stream);

}  // namespace kalo
