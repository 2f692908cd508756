#include "box/setup/run_program.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "host/core/spawn.h"
#include "host/core/unique_fd.h"

namespace kalo::box {
namespace {

constexpr off_t kLastWords = 4000;

std::string TailOf(int fd) {
  std::array<char, kLastWords> text{};
  const off_t size = lseek(fd, 0, SEEK_END);
  const ssize_t length = pread(fd, text.data(), text.size(), std::max<off_t>(0, size - kLastWords));
  return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(0, length))};
}

}  // namespace

void RunProgram(const std::vector<std::string>& argv) {
  const UniqueFd output(memfd_create("output", MFD_CLOEXEC));
  SpawnOptions options;
  options.stdout_fd = output.Get();
  options.stderr_fd = output.Get();
  const pid_t pid = Spawn(argv, options);
  const int status = pid > 0 ? WaitForExit(pid) : -1;
  if (status != 0) {
    throw std::runtime_error(argv.front() + " failed (" + std::to_string(status) + "):\n" +
                             TailOf(output.Get()));
  }
}

}  // namespace kalo::box
