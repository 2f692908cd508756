// kalo-install: installs the staged patch into the other slot, and settles after the restart
// whether the new version stays.

#include <sys/types.h>
#include <syslog.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <exception>
#include <iostream>
#include <optional>
#include <string>

#include "host/core/file_lock.h"
#include "host/core/log.h"
#include "host/core/spawn.h"
#include "platform/paths.h"
#include "services/node/boot_result.h"
#include "services/node/error_codes.h"
#include "services/node/install_exit.h"
#include "services/node/install_report.h"
#include "services/node/installer.h"
#include "services/node/slots.h"
#include "services/node/stage.h"

namespace {

using kalo::node::InstallExit;

void Report(const kalo::node::InstallReport& report) {
  if (!kalo::node::WriteInstallReport(report)) {
    kalo::Log(LOG_ERR, "install: the report cannot be written");
  }
}

// @param installed the version that waits for the restart; empty on the way back
int RestartInto(const std::string& installed) {
  const pid_t pid = kalo::Spawn({KALO::paths::kRebootProgram});
  // The restart ends this process too, before or after it hears that it was granted.
  if (pid >= 0) Report({"reboot", kalo::node::kRestartAsked, installed, 0, "", ""});
  if (pid >= 0 && kalo::WaitForExit(pid) == 0) return InstallExit::kOk;
  const std::string why = std::string(KALO::paths::kRebootProgram) + " could not be run";
  kalo::Log(LOG_ERR, "install: %s", why.c_str());
  // Everything is installed: whoever follows it must hear that only the restart is missing.
  Report(
      {"failed", 0, installed, kalo::node::error::kGeneral, "the node cannot be restarted", why});
  return InstallExit::kFailed;
}

// Whether something else was handed in since what now waits for its restart.
bool IsSuperseded() {
  const auto staged = kalo::node::ReadStaged();
  return staged && staged->description.version != kalo::slots::ReadState().version;
}

int InstallAndRestart() {
  // What is installed already only needs its restart, which may not have come the first time.
  bool is_installed = kalo::slots::GetUse() == kalo::slots::Use::kAwaitsRestart;
  if (is_installed && IsSuperseded()) {
    kalo::slots::CallOff();
    is_installed = false;
  }
  kalo::node::Installer installer;
  if (!is_installed && !installer.Run()) return InstallExit::kFailed;
  return RestartInto(kalo::slots::ReadState().version);
}

// Returns as soon as the installation holds the lock; it goes on in a session of its own.
int Start(bool foreground) {
  const std::optional<kalo::FileLock> lock =
      kalo::FileLock::TakeWithin(KALO::paths::kInstallLock, kalo::node::kInstallLockPatience);
  if (!lock) return errno == ETIMEDOUT ? InstallExit::kBusy : InstallExit::kFailed;
  if (kalo::slots::GetUse() == kalo::slots::Use::kAwaitsVerdict) {
    kalo::Log(LOG_ERR, "install: the boot is not judged yet");
    return InstallExit::kBusy;
  }
  if (foreground) return InstallAndRestart();
  kalo::node::InstallReport report;
  report.step = "preparing";
  if (!kalo::node::WriteInstallReport(report)) return InstallExit::kFailed;
  const pid_t pid = fork();
  if (pid < 0) return InstallExit::kFailed;
  // The child shares the lock and keeps it: the parent must not unlock it on its way out.
  if (pid > 0) _exit(InstallExit::kOk);
  setsid();
  return InstallAndRestart();
}

// Nothing is staged meanwhile: what is installed now is dropped, what was just handed in is not.
int Confirm() {
  const std::optional<kalo::FileLock> lock = kalo::FileLock::TryTake(KALO::paths::kInstallLock);
  if (!lock) return errno == EWOULDBLOCK ? InstallExit::kBusy : InstallExit::kFailed;
  kalo::node::ConfirmBoot();
  return InstallExit::kOk;
}

int FallBack() {
  return kalo::node::GiveUpBoot() ? RestartInto("") : InstallExit::kFailed;
}

int ShowStatus() {
  const kalo::node::InstallReport report = kalo::node::CurrentReport();
  std::cout << "active slot: " << kalo::slots::ActiveSlot().filename().string() << "\n"
            << "installation: " << report.step << " " << report.percent << "%\n";
  if (report.step == "failed") std::cout << report.err_desc << ": " << report.err_msg << "\n";
  return InstallExit::kOk;
}

int Run(int argc, char** argv) {
  CLI::App app("Installs the staged patch into the other slot and restarts the node");
  bool foreground = false;
  app.require_subcommand(1);
  app.add_subcommand("start", "install what is staged, in the background")
      ->add_flag("--foreground", foreground, "stay until it is done");
  app.add_subcommand("confirm", "this boot is healthy: keep its version");
  app.add_subcommand("fallback", "this boot is not healthy: go back and restart");
  app.add_subcommand("status", "tell which slot is active and how far an installation is");
  CLI11_PARSE(app, argc, argv);
  if (app.got_subcommand("start")) return Start(foreground);
  if (app.got_subcommand("fallback")) return FallBack();
  if (app.got_subcommand("status")) return ShowStatus();
  return Confirm();
}

}  // namespace

int main(int argc, char** argv) {
  openlog("kalo-install", LOG_PID, LOG_DAEMON);
  try {
    return Run(argc, argv);
  } catch (const std::exception& e) {
    kalo::Log(LOG_ERR, "install: %s", e.what());
    std::cerr << "kalo-install: " << e.what() << "\n";
    return InstallExit::kFailed;
  }
}
