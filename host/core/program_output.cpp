#include "host/core/program_output.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "host/core/guest_program.h"
#include "host/core/spawn.h"
#include "host/core/unique_fd.h"

namespace kalo {
namespace {

// A stream and the program behind it belong together until the stream is closed. The kernel keeps
// the number with the stream's own descriptor: nothing of ours has to be found again, locked, or
// copied by a fork.
bool Remember(int fd, pid_t pid) {
  return fcntl(fd, F_SETOWN, pid) == 0;
}

pid_t Recall(int fd) {
  return fcntl(fd, F_GETOWN);
}

// Runs the program to its end and keeps what it said.
UniqueFd Collect(pid_t pid, const UniqueFd& output) {
  UniqueFd text(memfd_create("program output", MFD_CLOEXEC));
  if (text && WaitForGuest(pid, output.Get(), text.Get()) && lseek(text.Get(), 0, SEEK_SET) == 0) {
    return text;
  }
  return {};
}

// Takes the descriptor over on success.
std::FILE* ToStream(UniqueFd& fd, pid_t pid) {
  if (!fd || !Remember(fd.Get(), pid)) return nullptr;
  std::FILE* stream = fdopen(fd.Get(), "r");
  if (stream != nullptr) (void)fd.Release();
  return stream;
}

}  // namespace

std::FILE* OpenProgramOutput(const std::vector<std::string>& argv, const std::string& name) {
  std::array<int, 2> ends = {-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return nullptr;
  UniqueFd read_end(ends[0]);
  UniqueFd write_end(ends[1]);
  const UniqueFd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
  if (!nowhere) return nullptr;
  const bool is_guest = IsGuestProgram(argv.front());
  SpawnOptions options;
  options.stdout_fd = write_end.Get();
  options.stderr_fd = nowhere.Get();
  options.own_session = is_guest;
  options.name = name;
  const pid_t pid = Spawn(argv, options);
  if (pid < 0) return nullptr;
  write_end.Reset();
  if (is_guest) read_end = Collect(pid, read_end);
  std::FILE* stream = ToStream(read_end, pid);
  if (stream != nullptr) return stream;
  const int error = errno;
  read_end.Reset();  // so that a program of ours does not wait for a reader for ever
  (void)WaitForEnd(pid);
  errno = error;
  return nullptr;
}

int CloseProgramOutput(std::FILE* stream) {
  const pid_t pid = Recall(fileno(stream));
  (void)std::fclose(stream);  // NOLINT(cppcoreguidelines-owning-memory): as the C interface has it
  return WaitForExit(pid);
}

}  // namespace kalo
