#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/faults/fault_control.h"
#include "tests/faults/fault_point.h"
#include "tests/faults/node_view.h"
#include "tests/journeys/support/mesh_box.h"
#include "tests/support/http_client.h"

namespace kalo::faults {

/// What a mesh is for.
enum class MeshKind {
  kStaying,  ///< nothing is installed: the CAP lags behind, a newer version for both is published
  kInstalling,  ///< both run the same; there is always a newer small update at hand
  kLagging,     ///< the CAP lags behind, and the satellite's version is published for it
};

/// @return the kind of mesh that a journey needs.
[[nodiscard]] MeshKind KindFor(const std::string& journey);

/// A mesh of two nodes, of two models, in each of whose programs a fault can be made to happen.
class FaultMesh {
 public:
  /// @throws std::runtime_error
  FaultMesh(const std::string& name, MeshKind kind);

  [[nodiscard]] const NodeView& Node(int id) const {
    return nodes_.at(static_cast<std::size_t>(id));
  }
  [[nodiscard]] journeys::MeshBox& Box() { return *box_; }
  /// A client with a session of its own; its requests end after a minute.
  [[nodiscard]] test::HttpClient& Client() { return *client_; }
  [[nodiscard]] MeshKind Kind() const { return kind_; }
  /// @return the patch that is handed in for a node, or published for it.
  [[nodiscard]] const std::string& Patch(int node) const {
    return patches_.at(static_cast<std::size_t>(node));
  }
  /// Makes a small update for both nodes that is newer than everything before it: the next Patch.
  void MakeNewer();
  /// @return the version that a node is to get in the end.
  [[nodiscard]] const std::string& Wanted() const { return wanted_; }
  /// @return the version that a node runs, read from its own file.
  [[nodiscard]] std::string Running(int node) const;
  /// What the node's programs wrote to their standard error since the last call.
  [[nodiscard]] std::string NewWords(int node);

  /// Lets the next fault happen there, and begins to count.
  void Arm(const FaultPoint& point);
  /// No more faults.
  /// @return the calls since Arm, the first kKeptCalls of them: of each a number made of its name.
  std::vector<std::uint16_t> Disarm();
  /// @return the name of the call that was hit; empty when none was.
  [[nodiscard]] std::string HitCall() const;

  /// @return whether the mesh is up and in sync before the deadline.
  [[nodiscard]] bool WaitUntilReady();
  /// Asks a row that pages ask all the time, and notes an answer that comes later than it may.
  [[nodiscard]] test::HttpAnswer Poll(const std::string& row);
  /// @return the polls since the last call that were answered too late; empty when none was.
  [[nodiscard]] std::string LatePolls() { return std::exchange(late_polls_, ""); }
  /// @return the word of "status", or "-" and why there is none.
  [[nodiscard]] std::string StatusWord();

 private:
  void LoadShim();
  void PublishUsual();

  MeshKind kind_;
  std::filesystem::path state_;
  std::unique_ptr<journeys::MeshBox> box_;
  std::unique_ptr<test::HttpClient> client_;
  std::vector<NodeView> nodes_;
  std::vector<std::string> patches_;
  std::vector<FaultControl*> controls_;  ///< one mapped page a node, for the runner's whole life
  std::vector<std::size_t> console_read_;
  std::string wanted_ = journeys::kNext;
  std::string late_polls_;
  int number_ = 0;  ///< of the newest small update
  int armed_ = 0;
};

}  // namespace kalo::faults
