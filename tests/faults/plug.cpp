#include "tests/faults/plug.h"

#include "tests/support/wait.h"

namespace kalo::faults {

Plug::Plug(FaultMesh& mesh)
    : mesh_(mesh), thread_([this] {
        const bool pulled = test::WaitFor([this] { return over_ || !mesh_.HitCall().empty(); },
                                          std::chrono::minutes(10)) &&
                            !mesh_.HitCall().empty();
        if (!pulled) return;
        mesh_.Box().Event(0, "offline");
        mesh_.Box().Event(0, "online");
      }) {}

Plug::~Plug() {
  over_ = true;
  thread_.join();
}

}  // namespace kalo::faults
