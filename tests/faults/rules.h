#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/faults/fault_mesh.h"
#include "tests/faults/node_view.h"

namespace kalo::faults {

/// What a mesh's nodes keep while nothing is done.
struct BaseLine {
  struct Node {
    std::set<std::string> programs;      ///< names of the processes
    std::size_t front_descriptors = 0;   ///< of the web API server
    std::size_t worker_descriptors = 0;  ///< the most that one of its workers has
  };
  std::vector<Node> nodes;
  std::size_t service_descriptors = 0;  ///< of the mesh service
};

/// @return the base line of a mesh that has just come up; what its faults leave adds up above it.
/// @throws std::runtime_error when a node has no worker
[[nodiscard]] BaseLine ReadBaseLine(const FaultMesh& mesh);

/// What holds of a mesh whatever fails beneath it. One object watches one journey with its fault
/// and the run after it.
class Rules {
 public:
  /// Notes how things are before the fault. Every job must be over.
  /// @param base of this mesh; borrowed
  Rules(FaultMesh& mesh, const BaseLine& base);

  /// Looks while and after what the fault began ends by itself.
  /// @param restarted the CAP was: what lay in its memory is gone, on purpose
  void CheckAfterFault(bool restarted);
  /// Looks once everything was run again: nothing is left but what that run shall leave.
  void CheckBaseLine();

  /// Notes what another one saw.
  void Break(const std::string& words) { broken_.push_back(words); }
  /// @return every rule that did not hold; empty is well.
  [[nodiscard]] const std::vector<std::string>& Broken() const { return broken_; }

 private:
  using Files = std::map<std::string, FileState>;
  void CheckJobsEnd();
  void CheckLocks();
  void CheckStatusWord();
  void CheckProgressFile(const char* path);
  void CheckConfiguration(int node);
  void CheckForeignLine(bool restarted);
  void CheckFiles(int node, bool restarted);
  void CheckPrograms(int node);
  [[nodiscard]] bool Installs() const;
  [[nodiscard]] bool MayChange(const std::string& path) const;
  void CheckNode(int node);
  [[nodiscard]] std::string LeftAt(int node) const;

  FaultMesh& mesh_;
  const BaseLine& base_;
  std::vector<Files> files_;
  std::vector<std::string> versions_;
  std::vector<Digests> programs_;
  std::vector<std::string> configurations_;
  bool has_foreign_line_ = false;
  std::vector<std::string> broken_;
};

}  // namespace kalo::faults
