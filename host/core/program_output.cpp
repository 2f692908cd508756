#include "host/core/program_output.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "host/core/guest_program.h"
#include "host/core/spawn.h"
#include "host/core/unique_fd.h"

namespace kalo {
namespace {

struct Pipe {
  [[nodiscard]] bool Open() {
    std::array<int, 2> ends = {-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return false;
    read_end.Reset(ends[0]);
    write_end.Reset(ends[1]);
    return true;
  }
  UniqueFd read_end;
  UniqueFd write_end;
};

// A stream and the program behind it belong together until the stream is closed. The kernel keeps
// the number with the stream's own descriptor: nothing of ours has to be found again, locked, or
// copied by a fork.
bool Remember(int fd, pid_t pid) {
  return fcntl(fd, F_SETOWN, pid) == 0;
}

pid_t Recall(int fd) {
  return fcntl(fd, F_GETOWN);
}

// Runs the updater of a patch to its end and keeps what it said.
// @param pid receives the process
UniqueFd Collect(const std::vector<std::string>& argv, const std::string& name, Pipe& pipe,
                 pid_t& pid) {
  const ConfinedUpdater updater(argv, name, pipe.write_end.Get());
  pid = updater.Pid();
  pipe.write_end.Reset();
  UniqueFd text(memfd_create("program output", MFD_CLOEXEC));
  if (updater.Wait(pipe.read_end.Get(), text.Get()) && lseek(text.Get(), 0, SEEK_SET) == 0) {
    return text;
  }
  return {};
}

// @param pid receives the process; negative when it did not start
UniqueFd Start(const std::vector<std::string>& argv, const std::string& name, Pipe& pipe,
               pid_t& pid) {
  const UniqueFd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
  SpawnOptions options;
  options.stdout_fd = pipe.write_end.Get();
  options.stderr_fd = nowhere.Get();
  options.name = name;
  pid = nowhere ? Spawn(argv, options) : -1;
  pipe.write_end.Reset();
  return pid < 0 ? UniqueFd() : std::move(pipe.read_end);
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
  Pipe pipe;
  if (!pipe.Open()) return nullptr;
  pid_t pid = -1;
  UniqueFd output =
      IsGuestProgram(argv.front()) ? Collect(argv, name, pipe, pid) : Start(argv, name, pipe, pid);
  std::FILE* stream = ToStream(output, pid);
  if (stream != nullptr) return stream;
  const int error = errno;
  output.Reset();  // so that a program of ours does not wait for a reader for ever
  if (pid >= 0) (void)WaitForEnd(pid);
  errno = error;
  return nullptr;
}

int CloseProgramOutput(std::FILE* stream) {
  const pid_t pid = Recall(fileno(stream));
  (void)std::fclose(stream);  // NOLINT(cppcoreguidelines-owning-memory): as the C interface has it
  return WaitForExit(pid);
}

}  // namespace kalo
