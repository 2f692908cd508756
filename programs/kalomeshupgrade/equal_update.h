#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/core/file_lock.h"
#include "host/core/signal_queue.h"
#include "host/update/node_client.h"
#include "platform/update/update_node.h"
#include "programs/kalomeshupgrade/wanted_patches.h"

namespace kalo::equal {

/// Somebody asked it to end.
class Stopped : public std::runtime_error {
 public:
  Stopped() : std::runtime_error("stopped") {}
};

/// Brings the nodes that lag behind to the next version which the last check found for them:
/// fetches the patches, hands them to the nodes and has the mesh service install them. Reports in
/// the upgrade's progress file, which says "upgrading" from the first step to the last.
///
/// Until the nodes install, SIGTERM takes everything back: the file says "canceled", and no node
/// keeps a patch. After that it only ends this program: the mesh service carries the installation
/// through, also over the CAP's own restart, and ends the file as its update ends.
class EqualUpdate {
 public:
  /// @param signals with SIGTERM; outlives this object
  explicit EqualUpdate(SignalQueue& signals) : signals_(signals) {}

  /// @throws EqualUpdateError, Stopped, or what the libraries throw; the progress file then has its
  ///         last word.
  void Run();

 private:
  using UpdateNode = KALO::MESH::SDK::Upgrade::UpdateNode;

  void HandOut(const std::vector<WantedPatch>& patches);
  void HandOut(const WantedPatch& patch, const ModelGroup& group);
  std::string Fetch(const WantedPatch& patch, const ModelGroup& group);
  void Upload(const WantedPatch& patch, std::int32_t id, const std::string& path);
  [[nodiscard]] KALO::MESH::SDK::Response SendPatch(const NodeAddress& node,
                                                    const Json::Value& params,
                                                    const std::string& path);
  void Follow();
  void TakeBack(const char* word);
  void CleanNodes() const;
  void StepDone();
  void ShowFraction(double fraction);
  [[nodiscard]] bool IsStopAsked();
  void ThrowIfStopAsked();

  SignalQueue& signals_;
  std::vector<UpdateNode> nodes_;
  int steps_ = 0;  ///< downloads and uploads in all
  int done_ = 0;
  int percent_ = 0;
  bool stop_asked_ = false;
};

}  // namespace kalo::equal
