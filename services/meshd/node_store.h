#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "services/meshd/node_registry.h"

namespace kalo::meshd {

/// Keeps what identifies each node of the mesh (name, model, last known version) over restarts, so
/// that a node that is offline meanwhile still has them: docs/files.md has the file's members.
class NodeStore {
 public:
  /// @param folder must exist when something is saved
  explicit NodeStore(const std::string& folder) : path_(folder + "/nodes.json") {}

  /// Reads what was saved. A file that is damaged or cannot be read counts as absent, and is
  /// logged.
  /// @return reports with an identity and nothing else, no boot id in particular.
  [[nodiscard]] std::vector<NodeReport> Load();

  /// Replaces the file unless it says this already. Nodes that the registry does not know are
  /// dropped, keys that this program does not know are kept.
  /// @return false when it could not be saved; logged once.
  [[nodiscard]] bool Save(const NodeRegistry& registry);

 private:
  std::string path_;
  Json::Value root_{Json::objectValue};
  std::string saved_;
  bool failing_ = false;
};

}  // namespace kalo::meshd
