#include "box/commands/running_mesh.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <vector>

#include "box/control.h"
#include "box/private_root.h"
#include "host/core/spawn.h"

namespace kalo::box {
namespace fs = std::filesystem;
namespace {

constexpr std::chrono::milliseconds kTick{50};
constexpr std::chrono::seconds kStopDeadline{15};
constexpr std::chrono::seconds kReapDeadline{5};

std::vector<std::string> Command(const Layout& layout, const RunningMesh::Options& options) {
  PrivateRoot root;
  root.state = layout.LauncherRoot();
  root.bind = {layout.State()};
  root.read_only = {options.build};
  root.hostname = "kalo-mesh";
  for (int id = 0; id < options.nodes; ++id) {
    root.tmpfs.push_back({layout.Node(id) / "volume1", options.disk_mib << 20});
  }
  PrepareState(root.state);
  root.machine = CopyMachineFiles(root.state);
  std::vector<std::string> command = BwrapCommand(root);
  command.insert(command.end(), {options.build / "box/kalo-box-launcher", "--listen-fd", "3"});
  command.insert(command.end(), {"--state", layout.State(), "--build", options.build});
  command.insert(command.end(), {"--nodes", std::to_string(options.nodes)});
  command.insert(command.end(), {"--tmp-mib", std::to_string(options.tmp_mib)});
  command.insert(command.end(), {"--auto-check", std::to_string(options.auto_check_s)});
  command.insert(command.end(), {"--auto-upgrade", std::to_string(options.auto_upgrade_s)});
  command.insert(command.end(), {"--feed-rate", std::to_string(options.feed_rate_kib)});
  return command;
}

}  // namespace

RunningMesh::RunningMesh(Layout layout, Options options, int listen_fd)
    : layout_(std::move(layout)),
      options_(std::move(options)),
      signals_({SIGTERM, SIGINT, SIGHUP, SIGCHLD}) {
  // A box's own first process outlives bwrap by a moment: "down" is only true when it is gone too.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  loop_.Add(signals_.Fd(), [this] { OnSignal(); });
  const UniqueFd log(open(layout_.Log().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  SpawnOptions spawn;
  spawn.stdout_fd = log.Get();
  spawn.stderr_fd = log.Get();
  spawn.pass_fd = listen_fd;
  spawn.own_session = true;  // a terminal's Ctrl-C is for this process, which ends the box in order
  box_ = Spawn(Command(layout_, options_), spawn);
  if (box_ <= 0) throw std::system_error(errno, std::generic_category(), "cannot run bwrap");
}

RunningMesh::~RunningMesh() {
  Stop();
  const auto end = std::chrono::steady_clock::now() + kReapDeadline;
  while (waitpid(-1, nullptr, WNOHANG) >= 0 && std::chrono::steady_clock::now() < end) {
    loop_.Turn(kTick);
  }
  std::error_code ignored;
  fs::remove(layout_.LauncherControl(), ignored);
}

void RunningMesh::OnSignal() {
  while (const int signal = signals_.Next()) {
    if (signal != SIGCHLD) {
      told_to_end_ = true;
    } else if (box_ > 0 && waitpid(box_, nullptr, WNOHANG) == box_) {
      box_ = 0;
    }
  }
}

bool RunningMesh::IsHealthy() const {
  for (int id = 0; id < options_.nodes; ++id) {
    if (!fs::exists(layout_.NodeHealth(id))) return false;
  }
  return true;
}

bool RunningMesh::WaitUntilHealthy(std::chrono::seconds deadline) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (box_ > 0 && !told_to_end_ && std::chrono::steady_clock::now() < end) {
    if (IsHealthy()) return true;
    loop_.Turn(kTick);
  }
  return false;
}

void RunningMesh::Run() {
  while (box_ > 0 && !told_to_end_) loop_.Turn(std::chrono::milliseconds(1000));
}

void RunningMesh::Stop() {
  if (box_ <= 0) return;
  // The launcher answers when the nodes are off; here only the end of its box counts.
  if (auto channel = ConnectControl(layout_.LauncherControl())) {
    Json::Value request(Json::objectValue);
    request["op"] = "down";
    static_cast<void>(channel->Send(request));
    const auto end = std::chrono::steady_clock::now() + kStopDeadline;
    while (box_ > 0 && std::chrono::steady_clock::now() < end) loop_.Turn(kTick);
  }
  if (box_ <= 0) return;
  kill(box_, SIGKILL);
  waitpid(box_, nullptr, 0);
  box_ = 0;
}

}  // namespace kalo::box
