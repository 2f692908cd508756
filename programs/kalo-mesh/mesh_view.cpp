#include "programs/kalo-mesh/mesh_view.h"

namespace kalo::cli {
std::string TextOf(const Json::Value& object, const char* key) {
  return object.isObject() && object[key].isString() ? object[key].asString() : "";
}

int NumberOf(const Json::Value& object, const char* key) {
  return object.isObject() && object[key].isInt() ? object[key].asInt() : 0;
}

bool IsTrue(const Json::Value& object, const char* key) {
  return object.isObject() && object[key].isBool() && object[key].asBool();
}

Json::Value FetchNodes(ApiClient& client) {
  return client.Call("KALO.Core.Mesh", 1, "nodes", Json::objectValue);
}

MeshView ReadMesh(const Json::Value& data) {
  MeshView mesh;
  mesh.update_running = IsTrue(data, "update_running");
  if (!data.isObject() || !data["nodes"].isArray()) return mesh;
  for (const Json::Value& node : data["nodes"]) {
    mesh.nodes.push_back({NumberOf(node, "id"), TextOf(node, "name"), TextOf(node, "model"),
                          TextOf(node, "version"), TextOf(node, "role"), IsTrue(node, "online"),
                          TextOf(node, "boot_id"), TextOf(node, "step"), NumberOf(node, "percent"),
                          TextOf(node, "staged_version"), TextOf(node, "error")});
  }
  return mesh;
}

}  // namespace kalo::cli
