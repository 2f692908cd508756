#pragma once

#include <sys/types.h>

#include <functional>
#include <map>

namespace kalo::webapid {

/// Knows who waits for the end of which child process. The front is the reaper of everything below
/// it: a child that nobody asked for is a background task that a worker left behind.
class ChildWatch {
 public:
  /// @param status as waitpid(2) gives it
  using Ended = std::function<void(int status)>;

  /// Calls the handler once when the child has ended.
  void Expect(pid_t pid, Ended handler);
  /// Sets the handler for children that nobody expects.
  void OnStranger(std::function<void(pid_t)> handler);
  /// Reaps every child that has ended. Call it at each SIGCHLD.
  void Reap();

 private:
  std::map<pid_t, Ended> expected_;
  std::function<void(pid_t)> stranger_;
};

}  // namespace kalo::webapid
