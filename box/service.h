#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace kalo::box {

/// How a service is started.
struct ServiceProgram {
  std::string name;
  std::vector<std::string> argv;                          ///< argv[0] is the absolute path
  int pass_fd = -1;                                       ///< becomes its descriptor 3
  std::function<bool()> may_start = [] { return true; };  ///< asked before each start
};

/// Keeps one program running: starts it again when it ends, at once after a long life and after a
/// pause that doubles up to five seconds after short ones.
class Service {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Service(ServiceProgram program) : program_(std::move(program)) {}

  /// Starts the program when it is wanted, does not run, and its pause is over.
  /// @return whether it was started now.
  bool Tick(Clock::time_point now);
  /// The program ended.
  void OnExit(Clock::time_point now);
  /// Says whether the program shall run. One that runs is not ended by this.
  void SetWanted(bool wanted) { wanted_ = wanted; }

  [[nodiscard]] const std::string& Name() const { return program_.name; }
  /// @return 0 when it does not run.
  [[nodiscard]] pid_t Pid() const { return pid_; }

 private:
  ServiceProgram program_;
  bool wanted_ = true;
  pid_t pid_ = 0;
  Clock::time_point started_;
  Clock::time_point not_before_;
  std::chrono::milliseconds pause_{0};
};

}  // namespace kalo::box
