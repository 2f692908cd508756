#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kalo::meshd {

enum class UpdateState { kNone, kRunning, kFinished, kFailed };

/// Where one node's part of an update stands.
enum class NodeStage {
  kWaiting,     ///< its turn has not come
  kStarting,    ///< it is being told to install, without an answer yet
  kInstalling,  ///< it took the order; ends with a new boot
  kDone,        ///< runs the wanted version in a new boot
  kFailed,
  kLeftOut,  ///< was offline when the update began: stays at its version
};

/// Why a node was not updated.
struct NodeError {
  std::int32_t number = 0;  ///< 0: nothing failed
  std::string description;  ///< what, on which node
  std::string message;      ///< why
};

struct UpdateNode {
  std::uint32_t id = 0;
  std::string name;
  std::uint32_t hops = 0;
  std::string from_version;
  std::string wanted_version;
  std::string boot_id;  ///< of the boot in which it was told to install
  NodeStage stage = NodeStage::kWaiting;
  std::string step = "none";
  std::int32_t percent = 0;
  bool old_failure = false;  ///< its install report still tells of an earlier failure
  NodeError error;
};

/// One update of the mesh: all that must survive a restart of the service, which may be the CAP's
/// own restart in the middle of it. After its end it stays as the last result.
struct UpdateRecord {
  UpdateState state = UpdateState::kNone;
  std::string step = "none";  ///< shown to users; never steps back
  std::int32_t total = 0;     ///< shown to users; never falls
  std::int64_t begun = 0;     ///< seconds since 1970; 0: not known
  std::string cause;          ///< who wanted it: "owner", "automatic", "equal"; empty: not known
  std::vector<UpdateNode> nodes;
};

/// @return the record as one JSON document.
[[nodiscard]] std::string ToJson(const UpdateRecord& record);

/// @throws BadJson when the text is not what ToJson writes.
[[nodiscard]] UpdateRecord UpdateRecordFromJson(const std::string& text);

}  // namespace kalo::meshd
