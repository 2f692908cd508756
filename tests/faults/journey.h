#pragma once

#include <string>

#include "tests/faults/fault_mesh.h"

namespace kalo::faults {

/// How a journey went.
struct Outcome {
  bool success = false;  ///< every request was granted, and what it promises has come about
  std::string broken;    ///< what may never be, whatever failed beneath; empty when all is well
  std::string words;     ///< answers, for messages
};

/// Brings the mesh to where the journey of this name begins.
/// @return what went wrong; empty when nothing did.
[[nodiscard]] std::string Prepare(FaultMesh& mesh, const std::string& journey);

/// Goes through the journey of this name: upload, download, precheck, equal, clean; install,
/// which starts an update of all nodes, and level, which brings the CAP to the satellite's version.
[[nodiscard]] Outcome Go(FaultMesh& mesh, const std::string& journey);

/// @return whether the node holds exactly its published patch, ready to be installed.
[[nodiscard]] bool HoldsPatch(const FaultMesh& mesh, int node);

}  // namespace kalo::faults
