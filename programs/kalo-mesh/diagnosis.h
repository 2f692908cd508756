#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace kalo::cli {

/// Why the mesh's status is what it is.
struct Diagnosis {
  std::string verdict;                ///< the status and the rule that it comes from
  std::vector<std::string> findings;  ///< what is odd besides, each with what to do
};

/// @param state     as KALO.Core.Mesh `events` answers
/// @param diagnosis as KALO.Core.Mesh `diagnosis` answers
[[nodiscard]] Diagnosis Diagnose(const Json::Value& state, const Json::Value& diagnosis);

}  // namespace kalo::cli
