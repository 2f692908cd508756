#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

namespace kalo::meshd {

/// What a node's installer says.
struct InstallReport {
  std::string step = "none";
  std::int32_t percent = 0;  ///< 0 to 100
  std::int32_t error_number = 0;
  std::string err_desc;
  std::string err_msg;
};

/// What a node says of itself.
struct NodeReport {
  std::uint32_t node_id = 0;
  std::string name;
  std::string unique;
  std::string version;
  std::int32_t build = 0;
  std::int32_t nano = 0;
  std::string boot_id;
  std::string staged_version;  ///< empty when nothing is staged
  InstallReport install;

  /// @return whether both are of one node with one name, at one version.
  [[nodiscard]] bool HasIdentityOf(const NodeReport& other) const;
};

/// Reads the data of a node's `info` answer. Texts come out fit for the bus: valid UTF-8 without
/// control characters, of bounded length.
/// @throws BadJson when a key is missing or of another type, or when the node does not say what it
///         runs or in which boot.
[[nodiscard]] NodeReport ParseNodeReport(const Json::Value& data);

}  // namespace kalo::meshd
