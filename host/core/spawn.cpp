#include "host/core/spawn.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "host/core/unique_fd.h"

namespace kalo {
namespace {

constexpr int kPassedFd = 3;
constexpr int kSignalOffset = 128;
constexpr std::array kEnvironment = {"PATH=/usr/bin:/bin:/usr/sbin:/sbin", "HOME=/root",
                                     "LANG=C.UTF-8"};

class FileActions {
 public:
  FileActions() { posix_spawn_file_actions_init(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
  posix_spawn_file_actions_t* Get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_ = {};
};

class Attributes {
 public:
  explicit Attributes(bool own_session) {
    posix_spawnattr_init(&attributes_);
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    const int flags =
        POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | (own_session ? POSIX_SPAWN_SETSID : 0);
    posix_spawnattr_setflags(&attributes_, static_cast<short>(flags));
  }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  ~Attributes() { posix_spawnattr_destroy(&attributes_); }
  const posix_spawnattr_t* Get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_ = {};
};

// What the program gets as descriptors 0 to 3. The caller's may have any of these numbers in any
// order, so they are copied above them first.
class Descriptors {
 public:
  // @return an error number, 0 for success.
  int Add(int source, int target, int null_flags) {
    if (source < 0 && null_flags < 0) return 0;
    if (source < 0) {
      return posix_spawn_file_actions_addopen(actions_.Get(), target, "/dev/null", null_flags, 0);
    }
    UniqueFd& copy = copies_[static_cast<std::size_t>(target)];
    copy = UniqueFd(fcntl(source, F_DUPFD_CLOEXEC, kPassedFd + 1));
    if (!copy) return errno;
    return posix_spawn_file_actions_adddup2(actions_.Get(), copy.Get(), target);
  }
  int CloseFrom(int first) {
    return posix_spawn_file_actions_addclosefrom_np(actions_.Get(), first);
  }
  const posix_spawn_file_actions_t* Get() { return actions_.Get(); }

 private:
  FileActions actions_;
  std::array<UniqueFd, kPassedFd + 1> copies_;
};

int Prepare(Descriptors& descriptors, const SpawnOptions& options) {
  constexpr int kNothing = -1;
  int error = descriptors.Add(options.stdin_fd, 0, O_RDONLY);
  if (error == 0) error = descriptors.Add(options.stdout_fd, 1, O_WRONLY);
  if (error == 0) error = descriptors.Add(options.stderr_fd, 2, kNothing);
  if (error == 0) error = descriptors.Add(options.pass_fd, kPassedFd, kNothing);
  const bool passes = options.pass_fd >= 0;
  if (error == 0) error = descriptors.CloseFrom(passes ? kPassedFd + 1 : kPassedFd);
  return error;
}

// posix_spawn takes char* const[] for historical reasons and changes nothing.
template <typename Strings, typename Convert>
std::vector<char*> Vector(const Strings& strings, Convert convert) {
  std::vector<char*> result;
  result.reserve(strings.size() + 1);
  for (const auto& string : strings) result.push_back(const_cast<char*>(convert(string)));
  result.push_back(nullptr);
  return result;
}

}  // namespace

pid_t Spawn(const std::vector<std::string>& argv, const SpawnOptions& options) {
  if (argv.empty() || !argv.front().starts_with('/')) {
    errno = EINVAL;
    return -1;
  }
  Descriptors descriptors;
  const Attributes attributes(options.own_session);
  auto arguments = Vector(argv, [](const std::string& word) { return word.c_str(); });
  if (!options.name.empty()) arguments.front() = const_cast<char*>(options.name.c_str());
  const auto environment = Vector(kEnvironment, [](const char* word) { return word; });
  pid_t pid = -1;
  int error = Prepare(descriptors, options);
  if (error == 0) {
    error = posix_spawn(&pid, argv.front().c_str(), descriptors.Get(), attributes.Get(),
                        arguments.data(), environment.data());
  }
  if (error == 0) return pid;
  errno = error;
  return -1;
}

ProcessEnd WaitForEnd(pid_t pid) {
  if (pid <= 0) {  // would mean any child
    errno = ECHILD;
    return {};
  }
  int status = 0;
  pid_t waited = -1;
  do {
    waited = waitpid(pid, &status, 0);
  } while (waited < 0 && errno == EINTR);
  if (waited < 0) return {};
  if (WIFEXITED(status)) return {false, WEXITSTATUS(status)};
  return {true, WTERMSIG(status)};
}

int WaitForExit(pid_t pid) {
  const ProcessEnd end = WaitForEnd(pid);
  return end.by_signal ? kSignalOffset + end.number : end.number;
}

}  // namespace kalo
