#include "tests/faults/rules.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "platform/paths.h"
#include "tests/faults/dead_job.h"
#include "tests/journeys/support/mesh_box.h"
#include "tests/support/wait.h"

namespace kalo::faults {
namespace {

namespace paths = KALO::paths;

constexpr std::chrono::seconds kJobsEnd{30};
constexpr std::chrono::seconds kLockFree{1};
// The server keeps a worker that was one too many, and its connections, for up to 20 s.
constexpr std::chrono::seconds kBackToBase{25};
constexpr std::size_t kMostWorkers = 16;
constexpr int kNodes = 2;
constexpr const char* kWhatRuns = "/usr/kalo";
constexpr const char* kWhatBootsNext = "/volume1/@slots/current";
constexpr const char* kForeignLine = "somebody=\"else\"\n";

// All faults of a mesh together may leave no more.
constexpr std::size_t kMoreDescriptors = 2;

// As the processes see them; through /proc the links of /var would lead to our own. What is locked
// for a key=value file stands beside these.
constexpr std::array<const char*, 6> kLocks = {
    "/run/lock/mesh_patch.lock", "/run/meshupdatetoequal.pid", paths::kPrecheckLock,
    paths::kInstallLock,         paths::kNotificationLock,     paths::kAutoUpdateLock};

// Programs that run only while there is something to do.
constexpr std::array<std::string_view, 8> kJobs = {
    kChildName,        "wget",         "kalomeshupgrade", "kaloappnotify", "updater",
    "kalo-download-r", "kalo-install", "kalo-confine"};

// Where a journey may leave something, or change it. Nothing else in a node may change.
constexpr std::array<std::string_view, 23> kMayChange = {
    "/etc/fault-control",
    "/etc/kaloinfo.conf",
    "/fullupgr@de.info",
    "/run/customized_reason",
    "/run/dbus/",
    "/run/kalo/",
    "/run/lock/mesh_patch.lock",
    "/run/meshupdatetoequal.pid",
    "/run/mount",
    "/tmp/lock",
    "/tmp/mesh_download",
    "/tmp/mesh_patch",
    "/tmp/mesh_upgrade",
    "/tmp/patchtmp",
    "/var/lib/kalo/feed",
    "/var/lib/kalo/meshd/",
    "/var/lib/kalo/notifications.json",
    "/var/lib/kalo/sessions/",
    "/var/log/messages",
    "/volume1/@mesh_full",
    "/volume1/@mesh_nano",
    "/volume1/@node_patch",
    "/volume1/@upload",
};

template <std::size_t N>
bool IsBelow(const std::string& path, const std::array<std::string_view, N>& places) {
  return std::any_of(places.begin(), places.end(),
                     [&](std::string_view place) { return path.starts_with(place); });
}

// What a killed process may leave: it is swept when it is too old to belong to a living one.
bool IsSwept(const std::string& path) {
  return path.find("/.kalo-") != std::string::npos || path.starts_with("/tmp/rss_v2_");
}

// What is there only while something is written or received; a process that was killed meanwhile
// leaves it to the next one.
bool IsPassing(const std::string& path) {
  return IsSwept(path) || path.find(".part") != std::string::npos ||
         path.find("/@upload/") != std::string::npos || path.starts_with("/tmp/patchtmp");
}

bool IsFolder(const FileState& file) {
  return (file.mode & 0170000) == 0040000;
}

std::string Lines(const std::string& text, std::string_view mark) {
  std::istringstream lines(text);
  std::string line;
  std::string found;
  while (std::getline(lines, line)) {
    if (line.find(mark) != std::string::npos) found += line + "\n";
  }
  return found;
}

bool IsRollingGroup(const std::string& text) {
  return !text.empty() && text.size() <= 4 &&
         text.find_first_not_of("0123456789") == std::string::npos;
}

// @return the first line that is no key="value"; empty when each one is.
std::string FirstBadLine(const std::string& text) {
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    const std::size_t equals = line.find("=\"");
    const bool is_comment = line.empty() || line.front() == '#';
    if (!is_comment && (equals == 0 || equals == std::string::npos || line.size() < equals + 3 ||
                        line.back() != '"')) {
      return line;
    }
  }
  return text.empty() || text.back() == '\n' ? "" : "no end of line";
}

using Processes = std::vector<Process>;

std::size_t CountOf(const Processes& processes, std::string_view name) {
  return static_cast<std::size_t>(std::count_if(processes.begin(), processes.end(),
                                                [&](const Process& p) { return p.name == name; }));
}

std::size_t DescriptorsOf(const Processes& processes, std::string_view name) {
  std::size_t most = 0;
  for (const Process& process : processes) {
    if (process.name == name) most = std::max(most, process.descriptors);
  }
  return most;
}

// Workers come and go, each with its channel: only the channels of nobody count.
std::size_t FrontDescriptors(const Processes& processes) {
  Process front;
  for (const Process& process : processes) {
    if (process.name == "webapid") front = process;
  }
  const std::size_t workers = CountOf(processes, "webapid-worker");
  return front.descriptors + front.channels - std::min(front.channels, workers);
}

std::set<std::string> ProgramsOf(const Processes& processes) {
  std::set<std::string> names;
  for (const Process& process : processes) names.insert(process.name);
  return names;
}

// Locks of key=value files stand in a folder of their own.
std::vector<std::string> LocksOf(const NodeView& node) {
  std::vector<std::string> locks(kLocks.begin(), kLocks.end());
  std::error_code error;
  for (std::filesystem::directory_iterator i(node.In(paths::kKeyValueLocks), error);
       !error && i != std::filesystem::directory_iterator(); i.increment(error)) {
    locks.push_back(std::string(paths::kKeyValueLocks) + "/" + i->path().filename().string());
  }
  return locks;
}

}  // namespace

BaseLine ReadBaseLine(const FaultMesh& mesh) {
  BaseLine base;
  for (int id = 0; id < kNodes; ++id) {
    const NodeView& node = mesh.Node(id);
    if (!test::WaitFor([&] { return node.Count("webapid-worker") > 0; })) {
      throw std::runtime_error("a node has no worker");
    }
    const Processes processes = node.Processes();
    base.nodes.push_back({ProgramsOf(processes), FrontDescriptors(processes),
                          DescriptorsOf(processes, "webapid-worker")});
    if (id == 0) base.service_descriptors = DescriptorsOf(processes, "meshd");
  }
  return base;
}

Rules::Rules(FaultMesh& mesh, const BaseLine& base) : mesh_(mesh), base_(base) {
  for (int id = 0; id < kNodes; ++id) {
    files_.push_back(mesh_.Node(id).Files());
    versions_.push_back(mesh_.Running(id));
    programs_.push_back(Installs() ? mesh_.Node(id).Programs(kWhatRuns) : Digests());
    configurations_.push_back(mesh_.Node(id).Read(paths::kConfiguration));
  }
  // A line of somebody else in the file that a check rewrites most often.
  const std::string found = mesh_.Node(0).Read(paths::kPatchInformation);
  if (!found.empty() && found.find(kForeignLine) == std::string::npos) {
    std::ofstream(mesh_.Node(0).In(paths::kPatchInformation), std::ios::app) << kForeignLine;
  }
  has_foreign_line_ = !found.empty();
}

void Rules::CheckAfterFault(bool restarted) {
  CheckJobsEnd();
  CheckLocks();
  CheckStatusWord();
  CheckProgressFile(paths::kDownloadProgress);
  CheckProgressFile(paths::kUpgradeProgress);
  CheckForeignLine(restarted);
  for (int id = 0; id < kNodes; ++id) {
    CheckConfiguration(id);
    CheckFiles(id, restarted);
    CheckNode(id);
  }
}

void Rules::CheckJobsEnd() {
  std::string running;
  const bool ended = test::WaitFor(
      [&] {
        running.clear();
        for (int id = 0; id < kNodes; ++id) {
          for (const Process& process : mesh_.Node(id).Processes()) {
            if (std::find(kJobs.begin(), kJobs.end(), process.name) != kJobs.end()) {
              running += process.name + " ";
            }
          }
        }
        return running.empty();
      },
      kJobsEnd);
  if (!ended) Break("a job does not end: " + running);
}

void Rules::CheckLocks() {
  for (int id = 0; id < kNodes; ++id) {
    for (const std::string& lock : LocksOf(mesh_.Node(id))) {
      if (!test::WaitFor([&] { return mesh_.Node(id).IsFree(lock); }, kLockFree)) {
        Break(lock + " is held after the last process of its job at node " + std::to_string(id));
      }
    }
  }
}

void Rules::CheckStatusWord() {
  DeadJob job;
  std::string word;
  bool is_lie = false;
  (void)test::WaitFor([&] {
    const auto asked = DeadJob::Clock::now();
    word = mesh_.StatusWord();
    const bool is_told = word == "downloading" || word == "upgrading";
    is_lie = job.IsToldTooLong(asked, is_told, false);
    return !is_told || is_lie;
  });
  if (is_lie) Break("long after the last job the status is still " + word);
}

void Rules::CheckProgressFile(const char* path) {
  static constexpr std::array<std::string_view, 8> kSteps = {
      "", "none", "downloading", "ready_upgrade", "upgrading", "finished", "failed", "canceled"};
  const std::string text = mesh_.Node(0).Read(path);
  const std::string bad = FirstBadLine(text);
  if (!bad.empty()) Break(std::string(path) + " has the line: " + bad);
  const std::string step = journeys::ValueIn(text, "step");
  if (std::find(kSteps.begin(), kSteps.end(), step) == kSteps.end()) {
    Break(std::string(path) + " has the step " + step);
  }
  const std::string percent = journeys::ValueIn(text, "percent");
  int number = 0;
  const auto [end, error] =
      std::from_chars(percent.data(), percent.data() + percent.size(), number);
  if (!percent.empty() && (error != std::errc() || end != percent.data() + percent.size() ||
                           number < 0 || number > 100)) {
    Break(std::string(path) + " has the percentage " + percent);
  }
}

void Rules::CheckForeignLine(bool restarted) {
  if (restarted) has_foreign_line_ = false;
  const std::string patches = mesh_.Node(0).Read(paths::kPatchInformation);
  const std::string bad = FirstBadLine(patches);
  if (!bad.empty()) Break(std::string(paths::kPatchInformation) + " has the line: " + bad);
  if (has_foreign_line_ && patches.find(kForeignLine) == std::string::npos) {
    Break("/tmp/mesh_patch lost a line of somebody else");
  }
}

// What the mesh wrote before and somebody else's lines are still there.
void Rules::CheckConfiguration(int node) {
  const std::string now = mesh_.Node(node).Read(paths::kConfiguration);
  const std::string bad = FirstBadLine(now);
  if (!bad.empty()) Break(std::string(paths::kConfiguration) + " has the line: " + bad);
  std::istringstream lines(configurations_.at(static_cast<std::size_t>(node)));
  std::string line;
  while (std::getline(lines, line)) {
    if (line.starts_with("patch_check_notified_version=")) continue;
    // One that cannot be read is drawn anew.
    if (line.starts_with("rolling_group_id=") &&
        IsRollingGroup(journeys::ValueIn(now, "rolling_group_id")))
      continue;
    if (Lines(now, line).empty()) Break("/etc/kaloinfo.conf lost the line: " + line);
  }
}

bool Rules::Installs() const {
  return mesh_.Kind() != MeshKind::kStaying;
}

bool Rules::MayChange(const std::string& path) const {
  return IsBelow(path, kMayChange) || IsPassing(path) ||
         (Installs() && path.starts_with("/volume1/@slots"));
}

void Rules::CheckFiles(int node, bool restarted) {
  const Files now = mesh_.Node(node).Files();
  const Files& before = files_.at(static_cast<std::size_t>(node));
  // A boot begins with empty folders there, and fills them.
  const auto is_watched = [&](const std::string& path) {
    const bool lasts = !path.starts_with("/run") && !path.starts_with("/tmp");
    return (lasts || !restarted) && !MayChange(path);
  };
  const std::string where = " at node " + std::to_string(node);
  for (const auto& [path, state] : now) {
    const auto old = before.find(path);
    if (!is_watched(path)) continue;
    if (old == before.end()) Break(std::string(path).append(" appeared").append(where));
    if (old != before.end() && !(old->second == state)) {
      Break(std::string(path).append(" was changed").append(where));
    }
  }
  for (const auto& [path, state] : before) {
    if (is_watched(path) && !now.contains(path)) {
      Break(std::string(path).append(" is gone").append(where));
    }
  }
}

void Rules::CheckNode(int node) {
  const NodeView& view = mesh_.Node(node);
  const std::string where = " at node " + std::to_string(node);
  const std::string version = mesh_.Running(node);
  const bool is_new = Installs() && version == mesh_.Wanted();
  if (version != versions_.at(static_cast<std::size_t>(node)) && !is_new) {
    Break("the version is " + version + where);
  }
  if (Installs()) CheckPrograms(node);
  const std::string staged = std::string(paths::kStagedPatch) + "/";
  if (mesh_.Kind() == MeshKind::kStaying && !view.Read(staged + "info").empty() &&
      view.Read(staged + "patch.pat") != mesh_.Patch(node)) {
    Break("what is staged is not what was published" + where);
  }
  const std::string words = mesh_.NewWords(node);
  for (const char* mark : {"Sanitizer", "runtime error", "terminate called"}) {
    const std::string found = Lines(words, mark);
    if (found.empty()) continue;
    Break(std::string("a program broke").append(where).append(": ").append(found).append(words));
  }
}

// A version is whole: all of it but its own name is the same in every version here. That which the
// next boot would show is to be whole at any time.
void Rules::CheckPrograms(int node) {
  for (const std::string folder : {kWhatRuns, kWhatBootsNext}) {
    const std::string where = " in " + folder + " at node " + std::to_string(node);
    const Digests now = mesh_.Node(node).Programs(folder);
    for (const auto& [path, digest] : programs_.at(static_cast<std::size_t>(node))) {
      const auto found = now.find(path);
      if (found == now.end()) Break(std::string(path).append(" is missing").append(where));
      if (found != now.end() && found->second != digest) {
        Break(std::string(path).append(" is not what was installed").append(where));
      }
    }
  }
}

// @return what a node has beyond its base line.
std::string Rules::LeftAt(int node) const {
  const NodeView& view = mesh_.Node(node);
  const BaseLine::Node& base = base_.nodes.at(static_cast<std::size_t>(node));
  const Files& before = files_.at(static_cast<std::size_t>(node));
  std::string left;
  for (const auto& [path, state] : view.Files()) {
    const bool is_result = IsSwept(path) || (MayChange(path) && !IsPassing(path));
    if (!before.contains(path) && !is_result && !IsFolder(state)) left += path + " stays; ";
  }
  const Processes processes = view.Processes();
  for (const std::string& name : ProgramsOf(processes)) {
    if (!base.programs.contains(name)) left += "a process " + name + " stays; ";
  }
  if (view.CountZombies() > 0) left += "a dead process stays; ";
  if (CountOf(processes, "webapid") != 1) left += "there is not one front; ";
  if (CountOf(processes, "webapid-worker") > kMostWorkers) left += "too many workers; ";
  if (FrontDescriptors(processes) > base.front_descriptors + kMoreDescriptors) {
    left += "the front has more descriptors; ";
  }
  if (DescriptorsOf(processes, "webapid-worker") > base.worker_descriptors + kMoreDescriptors) {
    left += "a worker has more descriptors; ";
  }
  if (node != 0) return left;
  if (CountOf(processes, "meshd") != 1) left += "there is not one mesh service; ";
  if (DescriptorsOf(processes, "meshd") > base_.service_descriptors + kMoreDescriptors) {
    left += "the mesh service has more descriptors; ";
  }
  return left;
}

void Rules::CheckBaseLine() {
  std::string why;
  const bool is_back = test::WaitFor(
      [&] {
        why.clear();
        for (int id = 0; id < kNodes; ++id) {
          const std::string left = LeftAt(id);
          if (!left.empty()) why += "node " + std::to_string(id) + ": " + left;
        }
        return why.empty();
      },
      kBackToBase);
  if (!is_back) Break("not back to the base line: " + why);
}

}  // namespace kalo::faults
