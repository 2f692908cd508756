#include "services/webapid/child_watch.h"

#include <sys/wait.h>

#include <utility>

namespace kalo::webapid {

void ChildWatch::Expect(pid_t pid, Ended handler) {
  expected_.insert_or_assign(pid, std::move(handler));
}

void ChildWatch::OnStranger(std::function<void(pid_t)> handler) {
  stranger_ = std::move(handler);
}

void ChildWatch::Reap() {
  int status = 0;
  for (pid_t pid = waitpid(-1, &status, WNOHANG); pid > 0; pid = waitpid(-1, &status, WNOHANG)) {
    auto ended = expected_.extract(pid);
    if (!ended.empty()) {
      ended.mapped()(status);
    } else if (stranger_) {
      stranger_(pid);
    }
  }
}

}  // namespace kalo::webapid
