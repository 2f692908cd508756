#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "programs/kalo-mesh/bars.h"
#include "programs/kalo-mesh/mesh_view.h"

namespace kalo::cli {

/// How one node came out of an update.
struct NodeResult {
  NodeView before;
  std::string wanted;   ///< empty: nothing was staged on it
  std::string version;  ///< read back from the node, after its new boot when it was updated
  std::string boot_id;
  std::string error;
  double seconds = 0;  ///< from the start until it ran the new version
  bool updated = false;

  [[nodiscard]] bool AsWanted() const { return wanted.empty() || updated; }
};

/// Follows a running update of the mesh, through the main router's own restart. A node counts as
/// updated when it says that it runs what was staged on it, in another boot than before: that it
/// answers again proves nothing.
class UpdateWatch {
 public:
  /// @param is_auto the caller is the automatic update, which others see as a busy mesh
  UpdateWatch(ApiClient& client, const MeshView& before, bool is_auto = false);

  /// Waits for the end, with bars.
  /// @return whether the update ended before the deadline.
  bool Follow(BarBoard& board, std::chrono::seconds deadline);

  [[nodiscard]] const std::map<int, NodeResult>& Results() const { return results_; }
  [[nodiscard]] bool AllAsWanted() const;

 private:
  using Clock = std::chrono::steady_clock;

  void Look();
  void Take(const NodeView& node);
  [[nodiscard]] bool IsSettled() const;
  void Draw(BarBoard& board) const;

  ApiClient& client_;
  Json::Value status_params_{Json::objectValue};
  Clock::time_point begin_ = Clock::now();
  std::map<int, NodeResult> results_;
  std::map<int, NodeView> latest_;
  std::string status_;
  std::string trouble_;  ///< why the last look failed; empty when it did not
  int total_ = 0;
  bool running_ = true;
};

}  // namespace kalo::cli
