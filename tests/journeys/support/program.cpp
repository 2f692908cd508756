#include "tests/journeys/support/program.h"

#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

#include "host/core/spawn.h"
#include "host/core/unique_fd.h"

namespace kalo::journeys {
namespace {

std::string Contents(int fd) {
  std::string text(static_cast<std::size_t>(lseek(fd, 0, SEEK_END)), '\0');
  const ssize_t length = pread(fd, text.data(), text.size(), 0);
  text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return text;
}

}  // namespace

Outcome RunProgram(const std::vector<std::string>& argv) {
  const UniqueFd out(memfd_create("out", MFD_CLOEXEC));
  const UniqueFd err(memfd_create("err", MFD_CLOEXEC));
  SpawnOptions options;
  options.stdout_fd = out.Get();
  options.stderr_fd = err.Get();
  const pid_t pid = Spawn(argv, options);
  Outcome outcome;
  if (pid > 0) outcome.status = WaitForExit(pid);
  outcome.out = Contents(out.Get());
  outcome.err = Contents(err.Get());
  return outcome;
}

}  // namespace kalo::journeys
