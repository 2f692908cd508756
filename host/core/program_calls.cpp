#include <fcntl.h>

#include <cerrno>
#include <cstdarg>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/core/precheck_calls.h"
#include "host/core/program_output.h"
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
  if (const auto status = kalo::RunForPrecheck(argv)) return *status;
  const kalo::UniqueFd nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  if (!nowhere) return kFailed;
  kalo::SpawnOptions options;
  options.stderr_fd = nowhere.Get();
  const pid_t pid = kalo::Spawn(argv, options);
  return pid < 0 ? kFailed : kalo::WaitForExit(pid);
}

// Collects the null-terminated words behind a call's fixed arguments.
bool TakeWords(va_list arguments, std::vector<std::string>& argv) {
  while (const char* argument = va_arg(arguments, const char*)) {
    if (argv.size() == kMostArguments) return false;
    argv.emplace_back(argument);
  }
  return true;
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
  const bool fits = TakeWords(arguments, argv);
  va_end(arguments);
  return fits ? Run(argv) : Fail(E2BIG);
}

std::FILE* KLIBCPopen(const char* path, const char* type, ...) {
  if (path == nullptr || type == nullptr || std::string_view(type) != "r") {
    errno = EINVAL;
    return nullptr;
  }
  std::vector<std::string> argv;
  va_list arguments;
  va_start(arguments, type);
  const bool fits = TakeWords(arguments, argv);
  va_end(arguments);
  if (!fits || argv.empty()) {
    errno = fits ? EINVAL : E2BIG;
    return nullptr;
  }
  const std::string name = std::exchange(argv.front(), path);
  return kalo::OpenProgramOutput(argv, name);
}

int KLIBCPclose(std::FILE* stream) {
  return stream == nullptr ? Fail(EINVAL) : kalo::CloseProgramOutput(stream);
}
