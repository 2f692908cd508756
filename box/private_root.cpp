#include "box/private_root.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace kalo::box {
namespace fs = std::filesystem;
namespace {

constexpr const char* kBwrap = "/usr/bin/bwrap";

constexpr std::array kStateFolders = {"etc", "etc.defaults", "root",   "run",
                                      "tmp", "var",          "volume1"};

// Shown read-only from the machine: the dynamic linker, names of users, certificates.
constexpr std::array kMachineConfiguration = {
    "ld.so.cache",   "ld.so.conf", "ld.so.conf.d", "alternatives", "passwd", "group",
    "nsswitch.conf", "services",   "protocols",    "localtime",    "ssl"};

void Append(std::vector<std::string>& command, std::initializer_list<std::string> words) {
  command.insert(command.end(), words);
}

// /usr is a tmpfs with the machine's folders bound below it: bwrap cannot make the mount point
// /usr/kalo inside a read-only bind.
void AppendUsr(std::vector<std::string>& command) {
  Append(command, {"--tmpfs", "/usr"});
  for (const auto& entry : fs::directory_iterator("/usr")) {
    if (entry.path().filename() == "kalo" || entry.is_symlink() || !entry.is_directory()) continue;
    Append(command, {"--ro-bind", entry.path(), entry.path()});
  }
  for (const auto* link : {"/bin", "/sbin", "/lib", "/lib64"}) {
    if (fs::is_symlink(link)) Append(command, {"--symlink", fs::read_symlink(link), link});
  }
  Append(command, {"--dir", "/usr/kalo"});
}

bool IsStateFolder(const fs::path& path) {
  return std::any_of(kStateFolders.begin(), kStateFolders.end(),
                     [&](const char* folder) { return path == fs::path("/") / folder; });
}

void AppendTmpfs(std::vector<std::string>& command, const SizedTmpfs& tmpfs) {
  Append(command, {"--size", std::to_string(tmpfs.bytes), "--tmpfs", tmpfs.path});
}

// The folders of the root itself: the state's, or in memory.
void AppendStateFolders(std::vector<std::string>& command, const PrivateRoot& root) {
  for (const auto* name : kStateFolders) {
    const fs::path folder = fs::path("/") / name;
    const auto tmpfs = std::find_if(root.tmpfs.begin(), root.tmpfs.end(),
                                    [&](const SizedTmpfs& t) { return t.path == folder; });
    if (tmpfs == root.tmpfs.end()) {
      Append(command, {"--bind", root.state / name, folder});
    } else {
      AppendTmpfs(command, *tmpfs);
    }
  }
}

void AppendExtras(std::vector<std::string>& command, const PrivateRoot& root) {
  for (const auto& path : root.read_only) Append(command, {"--ro-bind", path, path});
  for (const auto& path : root.bind) Append(command, {"--bind", path, path});
  for (const auto& [from, to] : root.elsewhere) Append(command, {"--bind", from, to});
  for (const SizedTmpfs& tmpfs : root.tmpfs) {
    if (!IsStateFolder(tmpfs.path)) AppendTmpfs(command, tmpfs);
  }
}

}  // namespace

void PrepareState(const fs::path& state) {
  for (const auto* folder : kStateFolders) fs::create_directories(state / folder);
  for (const auto* folder :
       {"tmp/lock", "run/lock", "run/kalo", "run/dbus", "var/log", "var/lib"}) {
    fs::create_directories(state / folder);
  }
  // Whatever the umask is. Only root runs programs here, so no one else needs to write.
  for (const auto* folder : {"tmp", "tmp/lock", "run/lock"}) {
    fs::permissions(state / folder, static_cast<fs::perms>(0755));
  }
  for (const auto& [link, target] : {std::pair{"lock", "/run/lock"}, std::pair{"run", "/run"}}) {
    const fs::path path = state / "var" / link;
    if (!fs::is_symlink(path)) fs::create_symlink(target, path);
  }
}

fs::path CopyMachineFiles(const fs::path& state) {
  const fs::path folder = state / "machine";
  fs::remove_all(folder);
  fs::create_directory(folder);
  for (const auto* name : kMachineConfiguration) {
    const fs::path path = fs::path("/etc") / name;
    if (fs::is_regular_file(path)) fs::copy_file(path, folder / name);
  }
  return folder;
}

bool MayMount() {
  if (geteuid() != 0) return false;
  const pid_t pid = fork();
  if (pid == 0) {
    execl(kBwrap, "bwrap", "--ro-bind", "/", "/", "/bin/true", nullptr);
    _exit(127);
  }
  int status = 0;
  return pid > 0 && waitpid(pid, &status, 0) == pid && status == 0;
}

std::vector<std::string> BwrapCommand(const PrivateRoot& root) {
  std::vector<std::string> command = {
      kBwrap,       "--unshare-pid", "--unshare-ipc", "--unshare-uts",     "--unshare-cgroup-try",
      "--hostname", root.hostname,   "--new-session", "--die-with-parent", "--clearenv"};
  Append(command, {"--setenv", "PATH", "/usr/bin:/bin:/usr/sbin:/sbin"});
  Append(command, {"--setenv", "HOME", "/root", "--setenv", "LANG", "C.UTF-8"});
  if (root.own_network) Append(command, {"--unshare-net"});
  if (root.as_pid_1) Append(command, {"--as-pid-1"});
  if (!MayMount()) Append(command, {"--unshare-user", "--uid", "0", "--gid", "0"});
  Append(command, {"--cap-add", "ALL", "--tmpfs", "/"});
  AppendUsr(command);
  Append(command, {"--proc", "/proc", "--dev", "/dev", "--tmpfs", "/dev/shm"});
  AppendStateFolders(command, root);
  for (const auto* name : kMachineConfiguration) {
    const fs::path path = fs::path("/etc") / name;
    if (!fs::exists(path)) continue;
    Append(command, {"--ro-bind", fs::is_directory(path) ? path : root.machine / name, path});
  }
  AppendExtras(command, root);
  Append(command, {"--chdir", "/", "--"});
  return command;
}

}  // namespace kalo::box
