#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/mesh/types.h"

namespace KALO::MESH::SDK::Client {

/// The mesh service, reached over the system message bus. An error reply, a time-out or a missing
/// service is a non-zero code; only a bus that cannot be reached throws (a standard exception).
class MeshClient {
 public:
  MeshClient() = default;
  MeshClient(const MeshClient&) = delete;
  MeshClient& operator=(const MeshClient&) = delete;
  virtual ~MeshClient() = default;

  virtual NodeInfosResult GetNodeInfos() = 0;
  virtual RepeaterAccessInfosResult GetRepeaterAccessInfos() = 0;
  virtual MeshSystemStatus GetMeshSystemStatus() = 0;

  /// Asks the service to update every node that has a patch staged on it.
  /// @return a status whose low 16 bits are the code: 0 when the service took the request. The
  ///         higher bits mean nothing.
  virtual std::uint32_t StartSystemUpdate() = 0;

  virtual SystemUpdateProgress GetSystemUpdateProgress() = 0;
  /// As above, and fills total_percentage.
  virtual SystemUpdateProgress GetSystemUpdateProgressV2() = 0;
};

class MeshClientFactory {
 public:
  /// Makes a client with a bus connection of its own. Hold it for one call only: a forked child
  /// must never use its parent's connection.
  /// @throws std::exception when the bus cannot be reached.
  static std::shared_ptr<MeshClient> GetClient();
};

/// @return the code as a number in text, for log lines.
std::string ErrorCodeToNumericalString(std::uint16_t code);
/// @return the code in words, for log lines.
std::string ErrorCodeToSemanticString(std::uint16_t code);

}  // namespace KALO::MESH::SDK::Client
