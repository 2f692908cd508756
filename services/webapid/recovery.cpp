#include "services/webapid/recovery.h"

#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/core/log.h"
#include "host/core/spawn.h"

namespace kalo::webapid {

Recovery::Recovery(ChildWatch& children, std::vector<std::filesystem::path> programs)
    : children_(children), programs_(std::move(programs)) {}

void Recovery::Run() {
  if (running_) {
    again_ = true;
    return;
  }
  next_ = 0;
  Next();
}

void Recovery::Next() {
  running_ = false;
  while (next_ < programs_.size()) {
    const std::filesystem::path& program = programs_[next_++];
    const pid_t pid = Spawn({program});
    if (pid < 0) {
      Log(LOG_ERR, "cannot start %s: %s", program.c_str(), std::strerror(errno));
      continue;
    }
    running_ = true;
    children_.Expect(pid, [this](int /*status: the program logs for itself*/) { Next(); });
    return;
  }
  if (std::exchange(again_, false)) Run();
}

}  // namespace kalo::webapid
