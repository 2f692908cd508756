#pragma once

#include <string>
#include <vector>

namespace kalo::box {

/// Runs a program to its end, quietly.
/// @throws std::runtime_error with the program's own last words when it fails.
void RunProgram(const std::vector<std::string>& argv);

}  // namespace kalo::box
