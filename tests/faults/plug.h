#pragma once

#include <atomic>
#include <thread>

#include "tests/faults/fault_mesh.h"

namespace kalo::faults {

/// Waits beside a journey until the armed fault is hit, then pulls the CAP's plug and starts it
/// again.
class Plug {
 public:
  explicit Plug(FaultMesh& mesh);
  Plug(const Plug&) = delete;
  Plug& operator=(const Plug&) = delete;
  ~Plug();

 private:
  FaultMesh& mesh_;
  std::atomic<bool> over_ = false;
  std::thread thread_;
};

}  // namespace kalo::faults
