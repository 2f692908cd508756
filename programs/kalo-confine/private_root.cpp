#include "programs/kalo-confine/private_root.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "host/core/file_io.h"
#include "platform/paths.h"

namespace kalo::confine {
namespace {

namespace fs = std::filesystem;

constexpr unsigned long kPlain = MS_NOSUID | MS_NODEV;
constexpr std::size_t kLargestCopy = std::size_t{1} << 20;

// On most systems links to folders below /usr.
constexpr std::array kSystemFolders = {"usr", "bin", "sbin", "lib", "lib64", "lib32"};
constexpr std::array kDevices = {"null", "zero", "full", "random", "urandom"};
// Copied as they are now, for everyone to read.
constexpr std::array kConfiguration = {"/etc/ld.so.cache", KALO::paths::kDefaults,
                                       KALO::paths::kUpdaterSettings};

void Check(int result, const std::string& what) {
  if (result != 0) throw std::system_error(errno, std::generic_category(), what);
}

fs::path In(const fs::path& path) {
  return fs::path(kWorkFolder) / path.relative_path();
}

void MountMemory(const fs::path& at, const char* options) {
  fs::create_directories(at);
  Check(mount("tmpfs", at.c_str(), "tmpfs", kPlain, options), "mounting " + at.string());
}

void Bind(const fs::path& from, const fs::path& at) {
  Check(mount(from.c_str(), at.c_str(), nullptr, MS_BIND | MS_REC, nullptr),
        "showing " + from.string());
}

void MakeReadOnly(const fs::path& at, unsigned flags, std::uint64_t more = 0) {
  mount_attr attributes = {};
  attributes.attr_set = MOUNT_ATTR_RDONLY | MOUNT_ATTR_NOSUID | more;
  Check(mount_setattr(AT_FDCWD, at.c_str(), flags, &attributes, sizeof attributes),
        "making " + at.string() + " read-only");
}

void ShowSystem() {
  for (const fs::path name : kSystemFolders) {
    const fs::path from = "/" / name;
    if (fs::is_symlink(from)) {
      fs::copy_symlink(from, In(name));
    } else if (fs::is_directory(from)) {
      fs::create_directory(In(name));
      Bind(from, In(name));
      MakeReadOnly(In(name), AT_RECURSIVE, MOUNT_ATTR_NODEV);
    }
  }
}

void ShowDevices() {
  fs::create_directory(In("dev"));
  for (const fs::path name : kDevices) {
    std::ofstream(In("dev" / name)).close();
    Bind("/dev" / name, In("dev" / name));
    MakeReadOnly(In("dev" / name), 0);
  }
  fs::create_symlink("/proc/self/fd", In("dev/fd"));
}

void CopyConfiguration() {
  fs::create_directory(In("etc"));
  for (const fs::path path : kConfiguration) {
    const auto text = ReadFile(path, kLargestCopy);
    if (!text) continue;
    fs::create_directories(In(path).parent_path());
    if (!WriteFileAtomic(In(path), *text, 0444)) Check(-1, "copying " + path.string());
  }
  if (!fs::is_directory("/etc/alternatives")) return;
  fs::create_directory(In("etc/alternatives"));
  Bind("/etc/alternatives", In("etc/alternatives"));
  MakeReadOnly(In("etc/alternatives"), AT_RECURSIVE, MOUNT_ATTR_NODEV);
}

}  // namespace

void BuildRoot(uid_t owner) {
  umask(S_IWGRP | S_IWOTH);
  Check(unshare(CLONE_NEWNS), "making a mount namespace");
  Check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "keeping mounts private");
  MountMemory(kWorkFolder, "size=4m,mode=0755");
  ShowSystem();
  ShowDevices();
  CopyConfiguration();
  fs::create_directory(In("proc"));
  Check(mount("proc", In("proc").c_str(), "proc", kPlain | MS_NOEXEC | MS_RDONLY, nullptr),
        "mounting /proc");
  MountMemory(In("run"), "size=1m,mode=0755");
  Check(chown(In("run").c_str(), owner, owner), "giving /run away");
  MountMemory(In("tmp"), "size=16m,mode=1777");
  MountMemory(kPatchFolder, "size=64m,mode=0755");
}

void EnterRoot() {
  MakeReadOnly(kPatchFolder, 0, MOUNT_ATTR_NODEV);
  MakeReadOnly(kWorkFolder, 0, MOUNT_ATTR_NODEV);
  Check(chdir(kWorkFolder), "entering the new root");
  Check(static_cast<int>(syscall(SYS_pivot_root, ".", ".")), "changing the root");
  Check(umount2(".", MNT_DETACH), "leaving the old root");
  Check(chdir("/"), "entering the new root");
}

}  // namespace kalo::confine
