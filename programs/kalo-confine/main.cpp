// kalo-confine NAME [ARGUMENT]...: runs the updater that the precheck unpacked from a patch, as a
// program that may do nothing but look and report. It ends as the updater does. Descriptor 3 gets
// one byte when the updater came to its own end; without it the updater was not run, or what it did
// does not count.

#include <sys/resource.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <system_error>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "host/core/private_folder.h"
#include "platform/core/file.h"
#include "platform/paths.h"
#include "programs/kalo-confine/confinement.h"
#include "programs/kalo-confine/private_root.h"

namespace {

namespace paths = KALO::paths;

constexpr int kCallerFd = 3;

void Check(bool good, const char* what) {
  if (!good) throw std::system_error(errno, std::generic_category(), what);
}

// Ends as the updater did, also by the same signal.
int EndAs(int wait_status) {
  if (WIFEXITED(wait_status)) return WEXITSTATUS(wait_status);
  const int number = WTERMSIG(wait_status);
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_CORE, &none);
  (void)std::signal(number, SIG_DFL);
  (void)std::raise(number);
  return 128 + number;
}

int Run(const std::vector<std::string>& words) {
  constexpr int kKeep = -1;
  const kalo::UniqueFd folder = kalo::OpenPrivateFolder(paths::kPrecheckScratch);
  Check(static_cast<bool>(folder), paths::kPrecheckScratch);
  Check(KALOFSMkdirP(kalo::confine::kWorkFolder, 0700, 1, kKeep, kKeep) == 0,
        kalo::confine::kWorkFolder);
  const auto [wait_status, report] = kalo::confine::RunConfined(folder.Get(), words);
  if (!report.empty()) {
    Check(kalo::WriteFileAtomic(paths::kPrecheckReport, report, 0600), paths::kPrecheckReport);
  }
  Check(kalo::WriteAll(kCallerFd, "e"), "answering");
  return EndAs(wait_status);
}

}  // namespace

int main(int argc, char** argv) {
  // Opened now: the confined processes cannot reach the log's socket.
  openlog("kalo-confine", LOG_NDELAY, LOG_DAEMON);
  int status = EXIT_FAILURE;
  try {
    status = Run({argv + 1, argv + argc});
  } catch (const std::exception& e) {
    kalo::Log(LOG_ERR, "did not run the updater of the patch: %s", e.what());
  }
  // At once: after the end of its process namespace this process can start nothing, not even the
  // thread with which a sanitizer looks for leaks.
  _exit(status);
}
