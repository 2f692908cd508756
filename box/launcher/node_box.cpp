#include "box/launcher/node_box.h"

#include <fcntl.h>

#include <csignal>
#include <string>
#include <vector>

#include "box/control.h"
#include "box/private_root.h"
#include "host/core/spawn.h"
#include "host/core/unique_fd.h"

namespace kalo::box {
namespace {

constexpr std::chrono::seconds kPauseAfterFailure{1};
constexpr std::uint64_t kRunBytes = std::uint64_t{16} << 20;

std::vector<std::string> Command(int id, const NodeBox::Setup& setup) {
  PrivateRoot root;
  root.state = setup.layout.Node(id);
  root.read_only = {setup.build};
  root.elsewhere = {{setup.layout.NodeBox(id), kBoxFolder}};
  root.tmpfs = {{"/tmp", setup.tmp_bytes}, {"/run", kRunBytes}};
  root.hostname = "node" + std::to_string(id);
  root.own_network = false;  // all nodes share the launcher's
  root.as_pid_1 = true;
  std::vector<std::string> command = BwrapCommand(root);
  command.push_back(setup.build / "box/node-init");
  if (id == 0 && setup.auto_check_s > 0) {
    command.insert(command.end(), {"--auto-check", std::to_string(setup.auto_check_s)});
  }
  if (id == 0 && setup.auto_upgrade_s > 0) {
    command.insert(command.end(), {"--auto-upgrade", std::to_string(setup.auto_upgrade_s)});
  }
  if (id == 0 && setup.listen_fd >= 0) command.insert(command.end(), {"--listen-fd", "3"});
  return command;
}

}  // namespace

void NodeBox::Tick(Clock::time_point now) {
  if (!wanted_ || pid_ != 0 || now < not_before_) return;
  const UniqueFd console(open(setup_.layout.NodeConsole(id_).c_str(),
                              O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  SpawnOptions options;
  options.stdout_fd = console.Get();
  options.stderr_fd = console.Get();
  if (id_ == 0) options.pass_fd = setup_.listen_fd;
  const pid_t pid = Spawn(Command(id_, setup_), options);
  if (pid > 0) {
    pid_ = pid;
  } else {
    not_before_ = now + kPauseAfterFailure;
  }
}

void NodeBox::OnExit(int status, Clock::time_point now) {
  pid_ = 0;
  not_before_ = status == kStartAgain ? now : now + kPauseAfterFailure;
}

void NodeBox::PullPlug() {
  if (pid_ > 0) kill(pid_, SIGKILL);
}

void NodeBox::SwitchOff() {
  if (pid_ == 0) return;
  Json::Value request(Json::objectValue);
  request["op"] = "poweroff";
  if (AskControl(setup_.layout.NodeControl(id_), request).isMember("error")) PullPlug();
}

}  // namespace kalo::box
