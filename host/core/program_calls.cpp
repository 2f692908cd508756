#include <fcntl.h>

#include <cerrno>
#include <cstdarg>
#include <string>
#include <vector>

#include "host/core/spawn.h"
#include "host/core/unique_fd.h"
#include "platform/core/process.h"

namespace {

constexpr int kFailed = -1;
constexpr int kQuiet = 187;  // the only flag word of KLIBCExecl
constexpr std::size_t kMostArguments = 64;

int Fail(int error) {
  errno = error;
  return kFailed;
}

// Nobody reads what the program says: the caller goes by its exit status.
int Run(const std::vector<std::string>& argv) {
  const kalo::UniqueFd nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  if (!nowhere) return kFailed;
  kalo::SpawnOptions options;
  options.stderr_fd = nowhere.Get();
  const pid_t pid = kalo::Spawn(argv, options);
  if (pid < 0) return kFailed;
  const kalo::ProcessEnd end = kalo::WaitForEnd(pid);
  return end.by_signal ? Fail(ECANCELED) : end.number;
}

}  // namespace

int KLIBCExec(const char* path, const char* arg1, const char* arg2, const char* arg3,
              const char* arg4) {
  if (path == nullptr) return Fail(EINVAL);
  std::vector<std::string> argv = {path};
  for (const char* argument : {arg1, arg2, arg3, arg4}) {
    if (argument == nullptr) break;
    argv.emplace_back(argument);
  }
  return Run(argv);
}

int KLIBCExecl(const char* path, int flags, ...) {
  if (path == nullptr || flags != kQuiet) return Fail(EINVAL);
  std::vector<std::string> argv = {path};
  va_list arguments;
  va_start(arguments, flags);
  while (const char* argument = va_arg(arguments, const char*)) {
    argv.emplace_back(argument);
    if (argv.size() > kMostArguments) break;
  }
  va_end(arguments);
  return argv.size() > kMostArguments ? Fail(E2BIG) : Run(argv);
}
