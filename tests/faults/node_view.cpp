#include "tests/faults/node_view.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>

#include "host/core/unique_fd.h"

namespace kalo::faults {
namespace fs = std::filesystem;
namespace {

constexpr const char* kFirstProcess = "node-init";

// Columns of /proc/PID/net/unix, and what stands for SOCK_SEQPACKET there.
constexpr std::size_t kType = 4;
constexpr std::size_t kInode = 6;
constexpr const char* kSeqPacket = "0005";

// What of a node can change. Everything else is read-only or made anew at its boot.
constexpr const char* kRoots[] = {"/etc", "/etc.defaults", "/root",   "/run",
                                  "/tmp", "/var",          "/volume1"};

fs::path Proc(pid_t pid, const char* entry) {
  return fs::path("/proc") / std::to_string(pid) / entry;
}

// Whatever can be read: a process may end meanwhile.
std::string ReadAll(const fs::path& path) {
  const std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string NameOf(pid_t pid) {
  std::string name = ReadAll(Proc(pid, "comm"));
  if (!name.empty()) name.pop_back();
  return name;
}

std::string NamespaceOf(pid_t pid) {
  std::error_code error;
  return fs::read_symlink(Proc(pid, "ns/pid"), error).native();
}

bool IsZombie(pid_t pid) {
  const std::string stat = ReadAll(Proc(pid, "stat"));
  const std::size_t end = stat.rfind(") ");
  return end == std::string::npos || stat[end + 2] == 'Z';
}

std::vector<pid_t> AllProcesses() {
  std::vector<pid_t> pids;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (error == std::errc() && end == name.data() + name.size()) pids.push_back(pid);
  }
  return pids;
}

bool IsSame(const fs::path& a, const fs::path& b) {
  struct stat one {};
  struct stat other {};
  return stat(a.c_str(), &one) == 0 && stat(b.c_str(), &other) == 0 && one.st_dev == other.st_dev &&
         one.st_ino == other.st_ino;
}

// The links of the sockets that carry messages within the machine: the server's to its workers.
std::set<std::string> MessageSockets(pid_t pid) {
  std::istringstream lines(ReadAll(Proc(pid, "net/unix")));
  std::set<std::string> links;
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream text(line);
    const std::vector<std::string> words{std::istream_iterator<std::string>(text), {}};
    if (words.size() > kInode && words[kType] == kSeqPacket) {
      links.insert("socket:[" + words[kInode] + "]");
    }
  }
  return links;
}

void CountDescriptors(Process& process) {
  const std::set<std::string> messages = MessageSockets(process.pid);
  std::error_code error;
  for (fs::directory_iterator i(Proc(process.pid, "fd"), error);
       !error && i != fs::directory_iterator(); i.increment(error)) {
    std::error_code gone;
    const std::string link = fs::read_symlink(i->path(), gone);
    if (!gone) ++(messages.contains(link) ? process.channels : process.descriptors);
  }
}

void Collect(const fs::path& root, const fs::path& path, std::map<std::string, FileState>& files) {
  struct stat state {};
  if (lstat(path.c_str(), &state) != 0) return;
  const std::string name = path.native().substr(root.native().size());
  // The build may lie below /tmp; a node sees it there, and all of its mesh's files in it.
  if (name == KALO_BUILD) return;
  if (!S_ISDIR(state.st_mode)) {
    files[name] = {state.st_mode, static_cast<std::uint64_t>(state.st_size),
                   state.st_mtim.tv_sec * 1'000'000'000 + state.st_mtim.tv_nsec};
    return;
  }
  files[name] = {state.st_mode, 0, 0};
  std::error_code error;
  for (fs::directory_iterator i(path, error); !error && i != fs::directory_iterator();
       i.increment(error)) {
    Collect(root, i->path(), files);
  }
}

}  // namespace

NodeView::NodeView(fs::path folder) : folder_(std::move(folder)) {}

pid_t NodeView::FirstProcess() const {
  const auto is_ours = [&](pid_t pid) {
    return NameOf(pid) == kFirstProcess && IsSame(Proc(pid, "root") / "box", folder_ / "box");
  };
  if (first_ > 0 && is_ours(first_)) return first_;
  const std::vector<pid_t> pids = AllProcesses();
  const auto found = std::find_if(pids.begin(), pids.end(), is_ours);
  first_ = found == pids.end() ? 0 : *found;
  return first_;
}

fs::path NodeView::Root() const {
  const pid_t first = FirstProcess();
  return first > 0 ? Proc(first, "root") : fs::path();
}

fs::path NodeView::In(const std::string& path) const {
  return Root().native() + path;
}

std::string NodeView::Read(const std::string& path) const {
  return ReadAll(In(path));
}

std::vector<pid_t> NodeView::AllOfNode() const {
  const std::string space = NamespaceOf(FirstProcess());
  if (space.empty()) return {};
  std::vector<pid_t> pids = AllProcesses();
  std::erase_if(pids, [&](pid_t pid) { return NamespaceOf(pid) != space; });
  return pids;
}

std::vector<Process> NodeView::Processes() const {
  std::vector<Process> processes;
  for (const pid_t pid : AllOfNode()) {
    if (IsZombie(pid)) continue;
    CountDescriptors(processes.emplace_back(Process{pid, NameOf(pid), 0, 0}));
  }
  return processes;
}

std::size_t NodeView::CountZombies() const {
  const std::vector<pid_t> pids = AllOfNode();
  return static_cast<std::size_t>(std::count_if(pids.begin(), pids.end(), IsZombie));
}

std::size_t NodeView::Count(const std::string& name) const {
  const std::vector<pid_t> pids = AllOfNode();
  return static_cast<std::size_t>(std::count_if(
      pids.begin(), pids.end(), [&](pid_t pid) { return NameOf(pid) == name && !IsZombie(pid); }));
}

std::map<std::string, FileState> NodeView::Files() const {
  std::map<std::string, FileState> files;
  const fs::path root = Root();
  if (root.empty()) return files;
  for (const char* folder : kRoots) Collect(root, root.native() + folder, files);
  return files;
}

Digests NodeView::Programs(const std::string& folder) const {
  Digests programs;
  const fs::path root = In(folder);
  std::error_code error;
  for (fs::recursive_directory_iterator i(root, error); !error && i != fs::end(i);
       i.increment(error)) {
    if (!i->is_regular_file(error) || i->path().filename() == "VERSION") continue;
    programs[i->path().lexically_relative(root)] = std::hash<std::string>()(ReadAll(i->path()));
  }
  return programs;
}

bool NodeView::IsFree(const std::string& lock) const {
  const UniqueFd fd(open(In(lock).c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) return true;
  struct flock record {};
  record.l_type = F_WRLCK;
  return flock(fd.Get(), LOCK_EX | LOCK_NB) == 0 &&
         (fcntl(fd.Get(), F_OFD_GETLK, &record) != 0 || record.l_type == F_UNLCK);
}

void NodeView::Kill(const std::string& name) const {
  for (const Process& process : Processes()) {
    if (process.name == name) kill(process.pid, SIGKILL);
  }
}

}  // namespace kalo::faults
