#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace kalo::box {

/// A folder shown under another path.
struct Shown {
  std::filesystem::path from;  ///< on the outside
  std::filesystem::path to;    ///< inside
};

/// A file system of its own in memory, so that "disk full" is real and the machine's disk is not.
struct SizedTmpfs {
  std::filesystem::path path;
  std::uint64_t bytes = 0;
};

/// What a private root shows of itself besides the machine's read-only /usr. The product's paths
/// are absolute and fixed, so everything that touches them runs in a root of its own.
struct PrivateRoot {
  std::filesystem::path
      state;  ///< folder that keeps etc, etc.defaults, root, run, tmp, var, volume1
  std::filesystem::path machine = "/etc";        ///< has the machine's files that are shown in /etc
  std::vector<std::filesystem::path> bind;       ///< shown writable at the same path
  std::vector<std::filesystem::path> read_only;  ///< shown read-only at the same path
  std::vector<Shown> elsewhere;                  ///< shown writable at another path
  std::vector<SizedTmpfs> tmpfs;                 ///< over what was there; instead of the
                                                 ///< state's folder for a path like /tmp
  std::string hostname = "kalobox";
  bool own_network = true;  ///< a loopback of its own, nothing else
  bool as_pid_1 = false;    ///< the program reaps the root's orphans itself
};

/// Makes the state folder's subfolders, with the links and modes that a booted system has.
/// @throws std::filesystem::filesystem_error
void PrepareState(const std::filesystem::path& state);

/// Copies the machine's files that a root shows in /etc. ldconfig, apt-get and useradd replace such
/// a file while the root runs, and a replaced file cannot be shown in a root inside it any more.
/// @param state keeps the copies
/// @return their folder, for PrivateRoot::machine.
/// @throws std::filesystem::filesystem_error
[[nodiscard]] std::filesystem::path CopyMachineFiles(const std::filesystem::path& state);

/// @return whether this process may mount without a user namespace of its own.
[[nodiscard]] bool MayMount();

/// The bwrap command that runs a program in the root, up to and including "--". The root ends with
/// the thread that starts it. Argument vector with bwrap's absolute path.
[[nodiscard]] std::vector<std::string> BwrapCommand(const PrivateRoot& root);

}  // namespace kalo::box
