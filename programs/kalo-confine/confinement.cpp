#include "programs/kalo-confine/confinement.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "host/core/regular_file.h"
#include "host/core/unique_fd.h"
#include "platform/paths.h"
#include "programs/kalo-confine/private_root.h"
#include "programs/kalo-confine/syscall_filter.h"
#include "programs/kalo-confine/verified_files.h"

namespace kalo::confine {
namespace {

// Above the users of Debian's policy, and none of its special ones.
constexpr uid_t kUser = 65432;
constexpr const char* kUpdater = "/tmp/patchtmp/updater";
constexpr std::size_t kLargestReport = 64UL * 1024;

struct Limit {
  __rlimit_resource resource;
  rlim_t most;
};
constexpr std::array kLimits = {Limit{RLIMIT_CORE, 0}, Limit{RLIMIT_NPROC, 256},
                                Limit{RLIMIT_NOFILE, 256}, Limit{RLIMIT_FSIZE, 32UL << 20},
                                Limit{RLIMIT_AS, 1UL << 30}};

struct Pipe {
  Pipe() {
    std::array<int, 2> ends = {-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
      throw std::system_error(errno, std::generic_category(), "pipe");
    }
    read_end.Reset(ends[0]);
    write_end.Reset(ends[1]);
  }
  UniqueFd read_end;
  UniqueFd write_end;
};

void Check(long result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
}

// Reads to the end of a pipe.
std::string ReadAll(const UniqueFd& pipe) {
  std::string text;
  std::array<char, 4096> piece{};
  while (true) {
    const ssize_t got = read(pipe.Get(), piece.data(), piece.size());
    if (got < 0 && errno == EINTR) continue;
    Check(got, "reading from the confined program");
    if (got == 0) return text;
    text.append(piece.data(), static_cast<std::size_t>(got));
  }
}

// In a user namespace of a developer there may be one user only, who then is no root either.
bool HasUser(uid_t user) {
  const std::string map = ReadFile("/proc/self/uid_map", 4096).value_or("");
  unsigned long first = 0;
  unsigned long outside = 0;
  unsigned long count = 0;
  return std::sscanf(map.c_str(), "%lu %lu %lu", &first, &outside, &count) == 3 && first <= user &&
         user - first < count;
}

void DropCapabilities() {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  const std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none = {};
  Check(prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0), "dropping capabilities");
  Check(syscall(SYS_capset, &header, none.data()), "dropping capabilities");
}

void DropRights(bool has_user) {
  Check(setsid(), "making a session");
  for (unsigned long number = 0; prctl(PR_CAPBSET_READ, number) >= 0; ++number) {
    Check(prctl(PR_CAPBSET_DROP, number), "dropping capabilities");
  }
  if (has_user) {
    Check(setgroups(0, nullptr), "leaving groups");
    Check(setresgid(kUser, kUser, kUser), "changing the group");
    Check(setresuid(kUser, kUser, kUser), "changing the user");
  }
  DropCapabilities();
  Check(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "giving up new rights");
}

// Becomes the program. Whatever fails is said in the pipe, which is closed when nothing failed.
[[noreturn]] void Become(const std::vector<std::string>& words, bool has_user,
                         const UniqueFd& trouble) {
  try {
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    Check(close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC), "closing files");
    DropRights(has_user);
    FilterSystemCalls();
    for (const auto& [resource, most] : kLimits) {
      const rlimit limit = {most, most};
      Check(setrlimit(resource, &limit), "setting limits");
    }
    execv(kUpdater, argv.data());
    Check(-1, "running it");
  } catch (const std::exception& e) {
    (void)WriteAll(trouble.Get(), e.what());
  }
  _exit(EXIT_FAILURE);
}

// Waits for the program, and meanwhile for the orphans that it leaves to us.
int WaitFor(pid_t program) {
  int status = 0;
  for (pid_t ended = 0; ended != program;) {
    ended = waitpid(-1, &status, 0);
    if (ended < 0 && errno != EINTR) Check(ended, "waiting for it");
  }
  return status;
}

std::string ReadReport() {
  const auto file = RegularFile::Open(AT_FDCWD, KALO::paths::kPrecheckReport);
  if (!file && errno == ENOENT) return "";
  const auto text = file ? file->ReadAll(kLargestReport) : std::nullopt;
  if (!text) {
    throw std::system_error(errno, std::generic_category(), "what it left as its report");
  }
  return *text;
}

// The first process of the namespaces: the others end with it.
class Inside {
 public:
  Inside(int folder, const std::vector<std::string>& words, const UniqueFd& outcome)
      : folder_(folder), words_(words), outcome_(outcome) {}

  void Run() {
    EndWithParent();
    const bool has_user = HasUser(kUser);
    // When memory is short, the kernel ends this first.
    (void)WriteFile("/proc/self/oom_score_adj", "1000");
    BuildRoot(has_user ? kUser : getuid());
    CopyVerified(ReadSignedList(folder_), folder_, kPatchFolder);
    EnterRoot();
    const int status = RunProgram(has_user);
    std::string text(reinterpret_cast<const char*>(&status), sizeof status);
    text += ReadReport();
    if (!WriteAll(outcome_.Get(), text)) Check(-1, "handing its report on");
  }

 private:
  void EndWithParent() const {
    Check(prctl(PR_SET_PDEATHSIG, SIGKILL), "tying it to its parent");
    pollfd reader = {outcome_.Get(), 0, 0};
    if (poll(&reader, 1, 0) != 0) throw std::runtime_error("its parent is gone");
  }
  [[nodiscard]] int RunProgram(bool has_user) const {
    Pipe trouble;
    const pid_t program = fork();
    Check(program, "starting it");
    if (program == 0) Become(words_, has_user, trouble.write_end);
    trouble.write_end.Reset();
    const std::string what = ReadAll(trouble.read_end);
    const int status = WaitFor(program);
    if (!what.empty()) throw std::runtime_error(what);
    return status;
  }
  static bool WriteFile(const char* path, std::string_view text) {
    const UniqueFd file(open(path, O_WRONLY | O_CLOEXEC));
    return file && WriteAll(file.Get(), text);
  }

  int folder_;
  const std::vector<std::string>& words_;
  const UniqueFd& outcome_;
};

[[noreturn]] void RunInside(int folder, const std::vector<std::string>& words,
                            const UniqueFd& outcome) {
  try {
    Inside(folder, words, outcome).Run();
  } catch (const std::exception& e) {
    Log(LOG_ERR, "did not run the updater of the patch: %s", e.what());
  }
  _exit(EXIT_SUCCESS);
}

}  // namespace

Outcome RunConfined(int folder, const std::vector<std::string>& words) {
  Pipe pipe;
  Check(unshare(CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC), "making namespaces");
  const pid_t first = fork();
  Check(first, "starting a process");
  if (first == 0) RunInside(folder, words, pipe.write_end);
  pipe.write_end.Reset();
  const std::string text = ReadAll(pipe.read_end);
  // All processes of a process namespace are gone when its first one is.
  while (waitpid(first, nullptr, 0) < 0 && errno == EINTR) continue;
  Outcome outcome;
  if (text.size() < sizeof outcome.wait_status) throw std::runtime_error("it was not run");
  std::memcpy(&outcome.wait_status, text.data(), sizeof outcome.wait_status);
  outcome.report = text.substr(sizeof outcome.wait_status);
  return outcome;
}

}  // namespace kalo::confine
