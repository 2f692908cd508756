#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "box/control.h"

namespace kalo::box {

/// Runs one command for somebody outside, with the standard descriptors that came along. Ends the
/// command when the other side goes away; tells its exit status when it ends.
class ExecSession {
 public:
  /// @param channel connection on which the request came
  /// @param fds standard input, output and error
  ExecSession(ControlChannel channel, const std::vector<std::string>& argv,
              const std::vector<UniqueFd>& fds);
  ExecSession(const ExecSession&) = delete;
  ExecSession& operator=(const ExecSession&) = delete;
  ~ExecSession();

  [[nodiscard]] int Fd() const { return channel_.Fd(); }
  /// @return 0 when it could not be started (the other side knows).
  [[nodiscard]] pid_t Pid() const { return pid_; }
  void OnExit(int status);

 private:
  ControlChannel channel_;
  pid_t pid_ = 0;
};

}  // namespace kalo::box
