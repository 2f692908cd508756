#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace kalo::faults {

/// A process of a node, by the numbers of the machine outside.
struct Process {
  pid_t pid = 0;
  std::string name;
  std::size_t channels = 0;     ///< descriptors between a server and its workers
  std::size_t descriptors = 0;  ///< all others
};

/// What a look at a file tells of it without reading it.
struct FileState {
  std::uint32_t mode = 0;
  std::uint64_t size = 0;
  std::int64_t modified_ns = 0;

  friend bool operator==(const FileState&, const FileState&) = default;
};

/// Files by their path, each with a digest of what it holds.
using Digests = std::map<std::string, std::size_t>;

/// Looks into a running node from outside, through /proc: its private root and its processes.
class NodeView {
 public:
  /// @param folder the node's folder in the state folder of its mesh
  explicit NodeView(std::filesystem::path folder);

  /// @return the node's root; empty when the node is off.
  [[nodiscard]] std::filesystem::path Root() const;
  /// @param path absolute, as the node sees it
  [[nodiscard]] std::filesystem::path In(const std::string& path) const;
  /// @return whatever it holds; empty when there is no such file.
  [[nodiscard]] std::string Read(const std::string& path) const;
  /// @return the node's processes, those that already died left out.
  [[nodiscard]] std::vector<Process> Processes() const;
  [[nodiscard]] std::size_t Count(const std::string& name) const;
  /// @return how many of the node's processes died and were not taken leave of.
  [[nodiscard]] std::size_t CountZombies() const;
  /// @return every file that can change in the node, by its path there.
  [[nodiscard]] std::map<std::string, FileState> Files() const;
  /// @param folder of a firmware, absolute, as the node sees it
  /// @return everything in it but the version's own name.
  [[nodiscard]] Digests Programs(const std::string& folder) const;
  /// @return whether nobody holds this lock; a lock file that is not there is free.
  [[nodiscard]] bool IsFree(const std::string& lock) const;
  /// Lets a node's process know nothing of its end.
  void Kill(const std::string& name) const;

 private:
  [[nodiscard]] pid_t FirstProcess() const;
  [[nodiscard]] std::vector<pid_t> AllOfNode() const;

  std::filesystem::path folder_;
  mutable pid_t first_ = 0;
};

}  // namespace kalo::faults
