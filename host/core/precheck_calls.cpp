#include "host/core/precheck_calls.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "host/core/guest_program.h"
#include "host/core/private_folder.h"
#include "host/core/regular_file.h"
#include "host/core/spawn.h"
#include "platform/paths.h"

namespace kalo {
namespace {

constexpr int kFailed = -1;
constexpr std::array kSignedList = {"manifest.json", "manifest.sig"};

bool IsMakingScratch(const std::vector<std::string>& argv) {
  return argv.size() == 3 && argv[0] == "/bin/mkdir" && argv[1] == "-p" &&
         argv[2] == KALO::paths::kPrecheckScratch;
}

bool IsUnpackingToScratch(const std::vector<std::string>& argv) {
  return argv.size() > 5 && argv[0] == "/bin/tar" && argv[1] == "-xf" && argv[3] == "-C" &&
         argv[4] == KALO::paths::kPrecheckScratch;
}

// What is unpacked is used, so others must not be able to exchange it.
std::optional<RegularFile> OpenArchive(const std::string& path) {
  auto archive = RegularFile::Open(AT_FDCWD, path);
  if (!archive) return std::nullopt;
  if (archive->IsOurs() && (archive->status.st_mode & (S_IWGRP | S_IWOTH)) == 0) return archive;
  errno = EACCES;
  return std::nullopt;
}

int Unpack(std::vector<std::string> argv) {
  const auto archive = OpenArchive(argv[2]);
  const UniqueFd folder = archive ? OpenPrivateFolder(argv[4]) : UniqueFd();
  const UniqueFd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
  if (!folder || !nowhere) return kFailed;
  argv[2] = "-";
  argv[4] = "/proc/self/fd/3";
  argv.insert(argv.end(), kSignedList.begin(), kSignedList.end());
  SpawnOptions options;
  options.stdin_fd = archive->fd.Get();
  options.stderr_fd = nowhere.Get();
  options.pass_fd = folder.Get();
  const pid_t pid = Spawn(argv, options);
  return pid < 0 ? kFailed : WaitForExit(pid);
}

int RunUpdater(const std::vector<std::string>& argv) {
  const ConfinedUpdater updater(argv, argv.front(), -1);
  const bool ended = updater.Wait(-1, -1);
  const int error = errno;
  const int status = updater.Pid() < 0 ? kFailed : WaitForExit(updater.Pid());
  errno = error;
  return ended ? status : kFailed;
}

}  // namespace

std::optional<int> RunForPrecheck(const std::vector<std::string>& argv) {
  if (IsMakingScratch(argv)) return MakePrivateFolder(argv[2]) ? 0 : kFailed;
  if (IsUnpackingToScratch(argv)) return Unpack(argv);
  if (IsGuestProgram(argv.front())) return RunUpdater(argv);
  return std::nullopt;
}

}  // namespace kalo
