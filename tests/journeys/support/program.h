#pragma once

#include <string>
#include <vector>

namespace kalo::journeys {

/// How a program ended and what it wrote.
struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

/// Runs a program to its end.
[[nodiscard]] Outcome RunProgram(const std::vector<std::string>& argv);

}  // namespace kalo::journeys
