// bench-measure PROGRAM ARGUMENT…: runs it and prints what it took: milliseconds, milliseconds of
// processor time, KiB of memory at most. What the program itself prints goes to the standard error.
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace {

long Milliseconds(const timeval& time) {
  return time.tv_sec * 1000L + time.tv_usec / 1000L;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
  const auto begin = std::chrono::steady_clock::now();
  pid_t pid = 0;
  if (posix_spawnp(&pid, argv[1], &actions, nullptr, argv + 1, environ) != 0) return 2;
  int status = 0;
  rusage used{};
  if (wait4(pid, &status, 0, &used) != pid || status != 0) return 1;
  const auto end = std::chrono::steady_clock::now();
  std::printf(
      "%ld %ld %ld\n",
      static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(end - begin).count()),
      Milliseconds(used.ru_utime) + Milliseconds(used.ru_stime), used.ru_maxrss);
  return 0;
}
