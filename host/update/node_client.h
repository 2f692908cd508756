#pragma once

#include <json/value.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "host/update/https_get.h"
#include "platform/update/response.h"

namespace kalo {

/// Where a node can be called.
struct NodeAddress {
  std::int32_t node_id = 0;
  std::string address;  ///< without port; the mesh port is fixed, 8443
};

/// No answer came: refused, timed out, or the certificate was not the asked node's.
class NodeUnreachable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// When an upload is given up.
struct UploadLimits {
  std::chrono::milliseconds whole = std::chrono::minutes(10);  ///< from connecting to the answer
  std::chrono::milliseconds stall = std::chrono::seconds(30);  ///< below 1 KiB/s while sending
  /// Asked until everything is sent. What the node has got whole it keeps, so its answer is waited
  /// for.
  Cancellation is_cancelled = {};
};

/// Calls the web API of mesh nodes over mutual TLS with this node's certificate. The server's
/// certificate must be the asked node's ("node<id>.mesh.internal"). One client belongs to one
/// thread and is not used across a fork.
class NodeClient {
 public:
  /// @throws std::runtime_error when the mesh's credentials cannot be loaded.
  explicit NodeClient(const UploadLimits& limits = {});
  NodeClient(const NodeClient&) = delete;
  NodeClient& operator=(const NodeClient&) = delete;
  ~NodeClient();

  /// @param deadline over name, connect, handshake and answer
  /// @return the node's answer; not valid when it is no envelope.
  /// @throws NodeUnreachable
  [[nodiscard]] KALO::MESH::SDK::Response Call(const NodeAddress& node, const std::string& api,
                                               int version, const std::string& method,
                                               const Json::Value& params,
                                               std::chrono::milliseconds deadline);

  /// Sends a file as the form's part "patch_file", streamed from the disk, with the parameters as
  /// the form's other fields: strings as they are, anything else as JSON. Ends by UploadLimits; a
  /// node that has got everything may take its time to check it.
  /// @throws NodeUnreachable; std::runtime_error when the file cannot be read or is
  ///         not what was verified.
  [[nodiscard]] KALO::MESH::SDK::Response Upload(const NodeAddress& node, const std::string& api,
                                                 int version, const std::string& method,
                                                 const Json::Value& params,
                                                 const std::string& path);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kalo
