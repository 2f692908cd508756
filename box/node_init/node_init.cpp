#include "box/node_init/node_init.h"

#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "box/layout.h"
#include "box/node_init/bus_configuration.h"
#include "box/node_init/process_tree.h"
#include "host/core/file_io.h"
#include "host/core/spawn.h"
#include "platform/paths.h"

namespace kalo::box {
namespace fs = std::filesystem;
namespace {

constexpr std::uint64_t kLogLimit = std::uint64_t{4} << 20;
constexpr std::chrono::seconds kHealthDeadline{30};
constexpr std::chrono::seconds kEndDeadline{5};
constexpr std::chrono::milliseconds kTick{50};

// Stands for a timer that a router with a service manager has.
ServiceProgram Timed(const char* name, const std::vector<std::string>& command,
                     std::chrono::seconds every) {
  const auto is_time = [every, next = Service::Clock::now() + every]() mutable {
    const auto now = Service::Clock::now();
    if (now < next) return false;
    next = now + every;
    return true;
  };
  std::vector<std::string> argv = {"/usr/kalo/bin/kalo-mesh", "--local"};
  argv.insert(argv.end(), command.begin(), command.end());
  argv.insert(argv.end(), {"--auto", "--json"});
  return {name, argv, -1, is_time};
}

}  // namespace

NodeInit::NodeInit(std::string boot_id, const NodeSetup& setup)
    : boot_id_(std::move(boot_id)),
      signals_({SIGTERM, SIGINT, SIGCHLD}),
      log_("/dev/log", "/var/log/messages", kLogLimit),
      control_(ListenControl(kBoxControl)),
      health_({[port = ReadMeshPort(KALO::paths::kServerConfiguration)] { return Answers(port); },
               [this](const char* word) { RunInstaller(word); }},
              Clock::now() + kHealthDeadline) {
  AddServices(setup);
  loop_.Add(signals_.Fd(), [this] { OnSignal(); });
  loop_.Add(log_.Fd(), [this] { log_.Take(); });
  loop_.Add(control_.Get(), [this] { OnConnection(); });
  log_.Write(LOG_NOTICE, "boot " + boot_id_);
}

void NodeInit::AddServices(const NodeSetup& setup) {
  services_.emplace_back(
      ServiceProgram{"dbus-daemon",
                     {"/usr/bin/dbus-daemon", std::string("--config-file=") + kBusConfiguration,
                      "--nofork", "--nopidfile", "--nosyslog"}});
  if (fs::exists(KALO::paths::kMeshNodes)) {  // only the CAP knows the mesh's nodes
    services_.emplace_back(ServiceProgram{"meshd", {"/usr/kalo/sbin/meshd"}, -1, IsBusUp});
  }
  ServiceProgram server{"webapid", {"/usr/kalo/sbin/webapid"}, setup.listen_fd, IsBusUp};
  if (setup.listen_fd >= 0) server.argv.insert(server.argv.end(), {"--listen-fd", "3"});
  services_.emplace_back(std::move(server));
  if (setup.auto_check_s > 0) {
    services_.emplace_back(
        Timed("auto-check", {"check"}, std::chrono::seconds(setup.auto_check_s)));
  }
  if (setup.auto_upgrade_s > 0) {
    services_.emplace_back(Timed("auto-upgrade", {"upgrade", "--accept-licence"},
                                 std::chrono::seconds(setup.auto_upgrade_s)));
  }
}

int NodeInit::Run() {
  while (!exit_status_) {
    Tick();
    loop_.Turn(kTick);
  }
  EndEverything();
  log_.Take();
  return *exit_status_;
}

void NodeInit::Tick() {
  const auto now = Clock::now();
  for (Service& service : services_) {
    if (service.Tick(now)) log_.Write(LOG_NOTICE, "started " + service.Name());
  }
  health_.Tick(now);
  if (!health_reported_ && health_.Get() != BootHealth::Verdict::kOpen) ReportHealth();
}

void NodeInit::ReportHealth() {
  health_reported_ = true;
  const bool healthy = health_.Get() == BootHealth::Verdict::kHealthy;
  log_.Write(healthy ? LOG_NOTICE : LOG_ERR,
             healthy ? "this boot is confirmed" : "this boot is bad: falling back");
  if (healthy && !WriteFileAtomic(kBoxHealth, boot_id_, 0644)) {
    log_.Write(LOG_ERR, "cannot tell the box that this boot is confirmed");
  }
}

void NodeInit::OnSignal() {
  while (const int signal = signals_.Next()) {
    if (signal == SIGCHLD) Reap();
    if (signal != SIGCHLD && !exit_status_) exit_status_ = 0;
  }
}

void NodeInit::Reap() {
  for (;;) {
    int status = 0;
    const pid_t pid = waitpid(-1, &status, WNOHANG);
    if (pid <= 0) return;
    OnExit(pid, WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
  }
}

void NodeInit::OnExit(pid_t pid, int status) {
  if (pid == installer_) {
    installer_ = 0;
    if (status != 0) log_.Write(LOG_ERR, "kalo-install ended with " + std::to_string(status));
    health_.OnInstallerExit(status);
    return;
  }
  for (Service& service : services_) {
    if (service.Pid() != pid) continue;
    service.OnExit(Clock::now());
    log_.Write(LOG_WARNING, service.Name() + " ended with " + std::to_string(status));
    return;
  }
  sessions_.remove_if([&](ExecSession& session) {
    if (session.Pid() != pid) return false;
    session.OnExit(status);
    loop_.Remove(session.Fd());
    return true;
  });
}

void NodeInit::OnConnection() {
  std::optional<ControlChannel> channel = AcceptControl(control_.Get());
  std::optional<ControlMessage> message = channel ? channel->Receive() : std::nullopt;
  if (!message) return;
  if (message->body["op"] == "exec") {
    StartSession(std::move(*channel), *message);
  } else {
    static_cast<void>(channel->Send(Answer(message->body)));
  }
}

void NodeInit::StartSession(ControlChannel channel, const ControlMessage& message) {
  std::vector<std::string> argv;
  for (const Json::Value& word : message.body["argv"]) {
    if (word.isString()) argv.push_back(word.asString());
  }
  ExecSession& session = sessions_.emplace_back(std::move(channel), argv, message.fds);
  if (session.Pid() == 0) {
    sessions_.pop_back();
    return;
  }
  // The other side says nothing more: readable means that it is gone.
  loop_.Add(session.Fd(), [this, pid = session.Pid()] {
    sessions_.remove_if([&](ExecSession& gone) {
      if (gone.Pid() != pid) return false;
      loop_.Remove(gone.Fd());
      return true;
    });
  });
}

Json::Value NodeInit::Answer(const Json::Value& request) {
  Json::Value answer(Json::objectValue);
  if (request["op"] == "reboot") {
    exit_status_ = kStartAgain;
  } else if (request["op"] == "poweroff") {
    exit_status_ = 0;
  } else if (request["op"] == "signal" || request["op"] == "want") {
    return ChangeService(request);
  } else {
    answer["error"] = "unknown request";
  }
  return answer;
}

Json::Value NodeInit::ChangeService(const Json::Value& request) {
  Json::Value answer(Json::objectValue);
  const auto service = std::find_if(services_.begin(), services_.end(), [&](const Service& s) {
    return request["service"] == s.Name();
  });
  if (service == services_.end()) {
    answer["error"] = "no such service";
    return answer;
  }
  int signal = request["signal"].isInt() ? request["signal"].asInt() : 0;
  if (request["op"] == "want") {
    const bool wanted = request["wanted"] == true;
    service->SetWanted(wanted);
    signal = wanted ? 0 : SIGTERM;
  }
  if (service->Pid() > 0 && signal > 0) SignalTree(service->Pid(), signal);
  return answer;
}

void NodeInit::RunInstaller(const char* word) {
  SpawnOptions options;
  options.stdout_fd = 2;
  installer_ = Spawn({KALO::paths::kInstallerProgram, word}, options);
  if (installer_ > 0) return;
  installer_ = 0;
  log_.Write(LOG_ERR, "kalo-install cannot be started");
  health_.OnInstallerExit(-1);
}

// Everything but this process: it is the first of its own process table.
void NodeInit::EndEverything() {
  log_.Write(LOG_NOTICE, *exit_status_ == kStartAgain ? "restarting" : "switching off");
  for (Service& service : services_) service.SetWanted(false);
  kill(-1, SIGTERM);
  kill(-1, SIGCONT);
  const auto deadline = Clock::now() + kEndDeadline;
  while (Clock::now() < deadline && waitpid(-1, nullptr, WNOHANG) >= 0) {
    log_.Take();
    loop_.Turn(kTick);
  }
  kill(-1, SIGKILL);
  while (waitpid(-1, nullptr, 0) > 0) continue;
}

}  // namespace kalo::box
