#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "programs/kalo-mesh/api_client.h"

namespace kalo::cli {

/// One node as `KALO.Core.Mesh` `nodes` tells it.
struct NodeView {
  int id = 0;
  std::string name;
  std::string model;
  std::string version;
  std::string role;
  bool online = false;
  std::string boot_id;
  std::string step;
  int percent = 0;
  std::string staged_version;
  std::string error;
};

struct MeshView {
  std::vector<NodeView> nodes;
  bool update_running = false;
};

/// @return the text of a member, empty when it is none: answers come from outside.
[[nodiscard]] std::string TextOf(const Json::Value& object, const char* key);
/// @return the number of a member, 0 when it is none.
[[nodiscard]] int NumberOf(const Json::Value& object, const char* key);

/// @return whether a member is true.
[[nodiscard]] bool IsTrue(const Json::Value& object, const char* key);

/// @throws as ApiClient::Call
[[nodiscard]] Json::Value FetchNodes(ApiClient& client);
[[nodiscard]] MeshView ReadMesh(const Json::Value& data);

}  // namespace kalo::cli
