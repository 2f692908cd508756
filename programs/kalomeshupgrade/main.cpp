// kalomeshupgrade --updatecaptoequal: brings the nodes that lag behind one step on. The web API
// starts it and ends it, by the number in its process id file.

#include <syslog.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <iostream>
#include <optional>
#include <span>
#include <string_view>

#include "host/core/log.h"
#include "host/core/pid_file.h"
#include "platform/paths.h"
#include "programs/kalomeshupgrade/equal_update.h"

namespace {

enum ExitStatus : int { kDone = 0, kFailed = 1, kUsage = 2, kRunsAlready = 3, kStopped = 4 };

constexpr std::string_view kHelp =
    "usage: kalomeshupgrade --updatecaptoequal\n"
    "\n"
    "Brings every node that lags behind, the main router included, to the next version that the\n"
    "last check for equal versions found: fetches the patches, hands them out and has them\n"
    "installed. Progress: kalo-mesh status. SIGTERM stops it.\n"
    "\n"
    "Exit status: 0 done, 1 failed, 2 wrong usage, 3 it runs already, 4 stopped\n";

int Fail(int status, const char* what) {
  kalo::Log(LOG_ERR, "%s", what);
  std::cerr << "kalomeshupgrade: " << what << "\n";
  return status;
}

int Run() {
  // Before the file that tells our number: a signal must find its taker.
  kalo::SignalQueue signals({SIGTERM, SIGINT});
  const auto pid_file = kalo::PidFile::TryTake(KALO::paths::kEqualUpdatePid);
  if (!pid_file && errno == EWOULDBLOCK) return Fail(kRunsAlready, "it runs already");
  if (!pid_file) return Fail(kFailed, std::strerror(errno));
  try {
    kalo::equal::EqualUpdate(signals).Run();
    kalo::Log(LOG_NOTICE, "done");
    return kDone;
  } catch (const kalo::equal::Stopped& e) {
    return Fail(kStopped, e.what());
  } catch (const std::exception& e) {
    return Fail(kFailed, e.what());
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::span<char*> words(argv, static_cast<std::size_t>(argc));
  openlog("kalomeshupgrade", 0, LOG_DAEMON);
  if (words.size() == 2 && std::string_view(words[1]) == "--help") {
    std::cout << kHelp;
    return kDone;
  }
  if (words.size() != 2 || std::string_view(words[1]) != "--updatecaptoequal") {
    std::cerr << kHelp;
    return kUsage;
  }
  try {
    return Run();
  } catch (const std::exception& e) {
    return Fail(kFailed, e.what());
  }
}
