#include "box/node_init/firmware_mount.h"

#include <sys/mount.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <system_error>

namespace kalo::box {
namespace {

constexpr const char* kPlace = "/usr/kalo";

// A remount in a user namespace must keep the flags that the mount has.
unsigned long KeptFlags(const char* path) {
  struct statvfs found {};
  if (statvfs(path, &found) != 0) return 0;
  unsigned long flags = 0;
  if ((found.f_flag & ST_NOSUID) != 0) flags |= MS_NOSUID;
  if ((found.f_flag & ST_NODEV) != 0) flags |= MS_NODEV;
  if ((found.f_flag & ST_NOEXEC) != 0) flags |= MS_NOEXEC;
  if ((found.f_flag & ST_NOATIME) != 0) flags |= MS_NOATIME;
  if ((found.f_flag & ST_RELATIME) != 0) flags |= MS_RELATIME;
  return flags;
}

}  // namespace

void MountFirmware(const std::filesystem::path& slot) {
  if (mount(slot.c_str(), kPlace, nullptr, MS_BIND, nullptr) != 0 ||
      mount(nullptr, kPlace, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY | KeptFlags(kPlace),
            nullptr) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot show " + slot.native());
  }
}

}  // namespace kalo::box
