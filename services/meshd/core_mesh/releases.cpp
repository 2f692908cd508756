#include <set>
#include <stdexcept>

#include "host/mesh/mesh_details.h"
#include "host/update/feed/release_details.h"
#include "services/meshd/core_mesh/answers.h"

namespace kalo::core_mesh {
namespace {

Json::Value ToJson(const std::string& model, const feed::Release& release) {
  Json::Value value(Json::objectValue);
  value["model"] = model;
  value["version"] = release.version;
  value["size"] = Json::UInt64{release.file.size};
  value["beta"] = release.phase == feed::kBeta;
  value["notes"] = Json::Value(Json::objectValue);
  for (const auto& [language, text] : release.notes) value["notes"][language] = text;
  return value;
}

}  // namespace

Json::Value Releases(const std::string& version) {
  const MeshDetails mesh = GetMeshDetails();
  if (mesh.code != 0)
    throw std::runtime_error("the mesh service does not tell which nodes there are");
  std::set<std::string> models;
  for (const MeshNodeDetails& node : mesh.nodes) {
    if (!node.model.empty()) models.insert(node.model);
  }
  Json::Value answer(Json::objectValue);
  answer["releases"] = Json::Value(Json::arrayValue);
  for (const std::string& model : models) {
    const auto release = feed::FetchReleaseDetails(model, version);
    if (release) answer["releases"].append(ToJson(model, *release));
  }
  return answer;
}

}  // namespace kalo::core_mesh
