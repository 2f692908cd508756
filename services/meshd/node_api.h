#pragma once

#include <cstdint>
#include <optional>

#include "services/meshd/node_report.h"

namespace kalo::meshd {

enum class StartOutcome {
  kAccepted,
  kRefused,
  kLater  ///< nothing was heard of the node, or it is busy for a moment: it is to be told again
};

/// A node's answer to `start`.
struct StartAnswer {
  StartOutcome outcome = StartOutcome::kLater;
  std::int32_t error_number = 0;  ///< the node's; 0 when it gave none
};

/// The calls that the service makes to one node. Used by one thread.
class NodeApi {
 public:
  NodeApi() = default;
  NodeApi(const NodeApi&) = delete;
  NodeApi& operator=(const NodeApi&) = delete;
  virtual ~NodeApi() = default;

  /// @return empty when no answer came in time, or none that can be read.
  [[nodiscard]] virtual std::optional<NodeReport> Info() = 0;

  /// Asks the node to install what is staged on it.
  [[nodiscard]] virtual StartAnswer Start() = 0;
};

}  // namespace kalo::meshd
