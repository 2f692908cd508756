#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>

#include "host/core/unique_fd.h"
#include "platform/core/file.h"

namespace {

using kalo::UniqueFd;

constexpr mode_t kUsual = 0755;
constexpr int kKeep = -1;

struct Wish {
  mode_t mode;
  uid_t uid;
  gid_t gid;
};

UniqueFd OpenFolder(int parent, const std::string& name) {
  return UniqueFd(openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// Opens a folder below another, which it makes when it is missing.
// @param made whether it was missing
UniqueFd Enter(int parent, const std::string& name, const Wish& wish, bool& made) {
  made = mkdirat(parent, name.c_str(), wish.mode) == 0;
  if (!made && errno != EEXIST) return UniqueFd();
  UniqueFd folder = OpenFolder(parent, name);
  if (!folder || !made) return folder;
  // Whatever the umask is.
  if (fchmod(folder.Get(), wish.mode) != 0) return UniqueFd();
  const bool owned = wish.uid != static_cast<uid_t>(kKeep) || wish.gid != static_cast<gid_t>(kKeep);
  if (owned && fchown(folder.Get(), wish.uid, wish.gid) != 0) return UniqueFd();
  return folder;
}

std::string TakeName(std::string_view& rest) {
  rest.remove_prefix(std::min(rest.find_first_not_of('/'), rest.size()));
  std::string name(rest.substr(0, rest.find('/')));
  rest.remove_prefix(name.size());
  return name;
}

}  // namespace

int KALOFSMkdirP(const char* path, int mode, int exist, int uid, int gid) {
  if (path == nullptr || *path == '\0' || mode < 0) {
    errno = EINVAL;
    return -1;
  }
  const Wish wish{mode == 0 ? kUsual : static_cast<mode_t>(mode), static_cast<uid_t>(uid),
                  static_cast<gid_t>(gid)};
  std::string_view rest = path;
  UniqueFd place = OpenFolder(AT_FDCWD, rest.starts_with('/') ? "/" : ".");
  bool made = false;
  for (std::string name = TakeName(rest); place && !name.empty(); name = TakeName(rest)) {
    if (name == "..") {
      errno = EINVAL;
      return -1;
    }
    place = Enter(place.Get(), name, wish, made);
  }
  if (!place) return -1;
  if (made || exist == 1) return 0;
  errno = EEXIST;
  return -1;
}
