#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace kalo::box {

/// Where the node's web API server can be reached by other nodes.
struct MeshPort {
  std::string address = "127.0.0.1";
  std::uint16_t port = 8443;
};

/// @return what the server's configuration says; the defaults where it says nothing usable.
[[nodiscard]] MeshPort ReadMeshPort(const std::string& path);

/// @return whether somebody listens there.
[[nodiscard]] bool Answers(const MeshPort& port);

/// Decides whether a boot was good: a server that answers before the deadline. The installer is
/// told "confirm" or "fallback". What fails is tried again, a second apart: a "confirm" until the
/// deadline, a "fallback" twice; a boot without a verdict keeps every installation out.
class BootHealth {
 public:
  using Clock = std::chrono::steady_clock;
  enum class Verdict { kOpen, kHealthy, kBad };

  /// What it does to the world.
  struct Doors {
    std::function<bool()> server_answers;
    /// Runs the installer with this word, without waiting; OnInstallerExit tells the end.
    std::function<void(const char* word)> run_installer;
  };

  BootHealth(Doors doors, Clock::time_point deadline)
      : doors_(std::move(doors)), deadline_(deadline) {}

  void Tick(Clock::time_point now);
  void OnInstallerExit(int status);
  [[nodiscard]] Verdict Get() const { return verdict_; }

 private:
  enum class Running { kNone, kConfirm, kFallback };

  void Run(Running what, const char* word, Clock::time_point now);

  Doors doors_;
  Clock::time_point deadline_;
  Verdict verdict_ = Verdict::kOpen;
  Running running_ = Running::kNone;
  Clock::time_point not_before_;  ///< nothing is tried again earlier than this
  int fallbacks_left_ = 3;
};

}  // namespace kalo::box
