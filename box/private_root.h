#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kalo::box {

/// What a private root shows of itself besides the machine's read-only /usr. The product's paths
/// are absolute and fixed, so everything that touches them runs in a root of its own.
struct PrivateRoot {
  std::filesystem::path
      state;  ///< folder that keeps etc, etc.defaults, root, run, tmp, var, volume1
  std::vector<std::filesystem::path> bind;  ///< shown writable at the same path
  bool own_network = true;                  ///< a loopback of its own, nothing else
};

/// Makes the state folder's subfolders, with the links and modes that a booted system has.
/// @throws std::filesystem::filesystem_error
void PrepareState(const std::filesystem::path& state);

/// @return whether this process may mount without a user namespace of its own.
[[nodiscard]] bool MayMount();

/// The bwrap command that runs a program in the root, up to and including "--".
[[nodiscard]] std::vector<std::string> BwrapCommand(const PrivateRoot& root);

}  // namespace kalo::box
