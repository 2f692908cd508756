#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/mesh/wire.h"
#include "services/meshd/node_api.h"
#include "services/meshd/node_registry.h"
#include "services/meshd/update_failure.h"
#include "services/meshd/update_record.h"

namespace kalo::meshd {

/// How long the driver waits.
struct UpdateTiming {
  std::chrono::milliseconds start{60000};  ///< for a node to take the order to install
  /// for a sign that the installation goes on: another step, a higher percentage, the new boot
  std::chrono::milliseconds install{180000};
  /// for a node's new installer to replace the report of an earlier failure; a new failure that
  /// follows so soon waits as long until it counts
  std::chrono::milliseconds old_failure{3000};
};

/// When an update began and who wanted it, as UpdateRecord has it.
struct UpdateOrigin {
  std::int64_t begun = 0;
  std::string cause;
};

/// Drives one update of the mesh: satellites first, farthest from the CAP first, those equally far
/// at once, the CAP last. A parent that restarts cuts off what hangs on it, and the CAP's restart
/// ends this very process.
///
/// A node that fails does not stop the others: each one runs a whole version either way, and those
/// that can be brought up should be; the mesh then shows its versions as not equal.
///
/// It only decides. It is told what nodes say and what time it is, and names the nodes that are to
/// be told to install; it neither calls, nor waits, nor writes. After a restart of the service it
/// goes on from the record: waits begin anew, a node that was being told is told again (it answers
/// that it already installs), and one that restarted meanwhile is judged by what it runs.
class UpdateDriver {
 public:
  UpdateDriver(UpdateRecord record, UpdateTiming timing, TimePoint now);

  /// Begins an update of every node that has a patch staged.
  /// @return kOk; kUpdateRunning; kNothingStaged when no node that is online has one staged.
  [[nodiscard]] mesh::MeshCode Begin(const NodeRegistry& registry, const UpdateOrigin& origin = {});
  /// Takes Begin back, before any step.
  void Abandon(UpdateRecord previous) { record_ = std::move(previous); }

  /// Takes what a node says of itself. What comes after its StartAnswered was asked after it.
  void Observed(const NodeReport& report, TimePoint now);
  void StartAnswered(std::uint32_t id, const StartAnswer& answer, TimePoint now);

  /// Ends waits that are over and gives the next nodes their turn.
  /// @return the nodes to tell now; each one's StartAnswered follows, or they stand in NotTold.
  [[nodiscard]] std::vector<std::uint32_t> Step(TimePoint now);
  /// Those that Step named were not told, as that could not be saved; the next Step names them
  /// again.
  void NotTold(const std::vector<std::uint32_t>& ids);

  /// @return whether Step is to follow at once upon what this node said: a turn, or the update, may
  ///         be over, the node is to be told, or it is the CAP, whose restart ends this process.
  [[nodiscard]] bool IsStepDueAfter(std::uint32_t id, TimePoint now);

  [[nodiscard]] bool Running() const { return record_.state == UpdateState::kRunning; }
  [[nodiscard]] const UpdateRecord& Record() const { return record_; }

 private:
  // What is only good for this run of the service.
  struct Wait {
    TimePoint since{};                     // since when the node is in its stage
    bool seen = false;                     // it said something since the service started
    bool called = false;                   // a call that tells it to install is under way
    TimePoint again{};                     // when it may be told once more
    LateCause cause = LateCause::kSilent;  // why it was not told so far
  };

  void ObservedWaiting(UpdateNode& node, const NodeReport& report);
  void ObservedInstalling(UpdateNode& node, const NodeReport& report, TimePoint now);
  void EndLateStages(TimePoint now);
  void GiveNextTurn(TimePoint now);
  void Enter(UpdateNode& node, NodeStage stage, TimePoint now);
  [[nodiscard]] UpdateNode* Find(std::uint32_t id);
  [[nodiscard]] bool IsToBeTold(const UpdateNode& node, TimePoint now);

  UpdateRecord record_;
  UpdateTiming timing_;
  std::map<std::uint32_t, Wait> waits_;
};

}  // namespace kalo::meshd
