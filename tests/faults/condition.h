#pragma once

#include <string>

#include "tests/faults/fault_mesh.h"

namespace kalo::faults {

/// How things are all the time while a journey is gone: a full disk, a stopped bus. Begins with
/// this object and ends with it.
class Condition {
 public:
  /// @param name one of Conditions(); empty: as always
  /// @throws std::runtime_error
  Condition(FaultMesh& mesh, std::string name, int node);
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;
  ~Condition();

 private:
  void Begin();
  void Run(const std::string& command);
  void Signal(const char* program, int signal);

  FaultMesh& mesh_;
  std::string name_;
  int node_;
};

}  // namespace kalo::faults
