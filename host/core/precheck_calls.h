#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kalo {

/// Runs a program of the precheck that must not be run as it is: `mkdir` of the scratch folder,
/// which is made anew and ours alone whatever lay there, and `tar` into it, which gets the folder
/// and the archive as descriptors that were checked, and unpacks the signed list of a patch too;
/// and the updater, which runs confined.
/// @return its exit status, negative with errno set when it could not be run; empty for every other
///         program.
[[nodiscard]] std::optional<int> RunForPrecheck(const std::vector<std::string>& argv);

}  // namespace kalo
