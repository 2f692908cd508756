#include "box/commands/detach.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "host/core/spawn.h"

namespace kalo::box {

std::optional<int> Detached::Fork() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  const UniqueFd read_end(ends[0]);
  UniqueFd write_end(ends[1]);
  const pid_t pid = fork();
  if (pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (pid == 0) {
    setsid();
    ready_ = std::move(write_end);
    return std::nullopt;
  }
  write_end.Reset();
  char byte = 0;
  return read(read_end.Get(), &byte, 1) == 1 ? 0 : WaitForExit(pid);
}

void Detached::SayReady() {
  if (!ready_) return;
  const UniqueFd null(open("/dev/null", O_RDWR | O_CLOEXEC));
  for (const int fd : {0, 1, 2}) dup2(null.Get(), fd);
  if (write(ready_.Get(), "1", 1) == 1) ready_.Reset();
}

}  // namespace kalo::box
