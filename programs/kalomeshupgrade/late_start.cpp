#include "programs/kalomeshupgrade/late_start.h"

#include "host/mesh/wire.h"

namespace kalo::equal {

using KALO::MESH::SDK::Client::SystemUpdateProgress;

bool RunsAllTheSame(std::uint16_t code, const std::function<SystemUpdateProgress()>& ask) {
  constexpr int kLooks = 10;
  if (code != static_cast<std::uint16_t>(mesh::MeshCode::kTimedOut) &&
      code != static_cast<std::uint16_t>(mesh::MeshCode::kConnectionLost)) {
    return false;
  }
  bool is_idle = false;
  for (int look = 0; look < kLooks; ++look) {
    const SystemUpdateProgress progress = ask();
    is_idle = progress.code == 0 &&
              (progress.step == "none" || progress.step == "finish" || progress.step == "failed");
    if (progress.code == 0 && !is_idle) return true;
  }
  return !is_idle;
}

}  // namespace kalo::equal
