// private-root: runs one program in a private root of its own and ends with its exit status. The
// root's files are gone afterwards.

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "box/private_root.h"

namespace fs = std::filesystem;

namespace {

constexpr int kUsage = 2;
constexpr int kCannotStart = 125;

// The folder in which a root's files live while it runs.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = fs::temp_directory_path() / "kalo-root.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw fs::filesystem_error("mkdtemp", pattern, {});
    path_ = pattern;
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  [[nodiscard]] const fs::path& Path() const { return path_; }

 private:
  fs::path path_;
};

int Run(std::vector<std::string>& command) {
  std::vector<char*> argv;
  argv.reserve(command.size() + 1);
  for (std::string& word : command) argv.push_back(word.data());
  argv.push_back(nullptr);
  // The root's own first process outlives bwrap by a moment and comes here.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t pid = fork();
  if (pid == 0) {
    execvp(argv[0], argv.data());
    std::cerr << "private-root: cannot run bwrap; is bubblewrap installed?\n";
    _exit(kCannotStart);
  }
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid) return kCannotStart;
  while (waitpid(-1, nullptr, 0) > 0) continue;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

int main(int argc, char** argv) {
  kalo::box::PrivateRoot root;
  int i = 1;
  for (; i + 1 < argc && std::string(argv[i]) == "--bind"; i += 2)
    root.bind.emplace_back(argv[i + 1]);
  if (i >= argc - 1 || std::string(argv[i]) != "--") {
    std::cerr << "usage: private-root [--bind FOLDER]... -- PROGRAM [ARGUMENT]...\n";
    return kUsage;
  }
  try {
    const TemporaryFolder folder;
    root.state = folder.Path();
    kalo::box::PrepareState(root.state);
    root.machine = kalo::box::CopyMachineFiles(root.state);
    std::vector<std::string> command = kalo::box::BwrapCommand(root);
    command.insert(command.end(), argv + i + 1, argv + argc);
    return Run(command);
  } catch (const std::exception& e) {
    std::cerr << "private-root: " << e.what() << "\n";
    return kCannotStart;
  }
}
