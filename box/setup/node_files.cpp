#include "box/setup/node_files.h"

#include <json/value.h>
#include <json/writer.h>

#include <filesystem>

#include "box/feed_address.h"
#include "box/private_root.h"
#include "box/setup/put_file.h"

namespace kalo::box {
namespace fs = std::filesystem;
namespace {

constexpr int kAdminPort = 443;
constexpr int kMeshPort = 8443;
constexpr unsigned kSecret = 0600;

std::string ServerConfiguration(const PlannedNode& node) {
  Json::Value value(Json::objectValue);
  value["address"] = node.address;
  value["admin_port"] = kAdminPort;
  value["mesh_port"] = kMeshPort;
  return value.toStyledString();
}

// What the maker builds in: the model, and where the updates are.
std::string Defaults(const PlannedNode& node) {
  const std::string feed = kFeedUrl;
  return "unique=\"" + node.model + "\"\nrss_server=\"" + feed + "\"\nrss_server_v2=\"" + feed +
         "/autoupdate/v2/getList\"\n";
}

void PutMeshCredential(const fs::path& folder, const MeshSetup& mesh, const PlannedNode& node) {
  const std::string name = "node" + std::to_string(node.id) + ".mesh.internal";
  const Credential credential = mesh.mesh_authority->Issue({name, {name}, {}});
  PutFile(folder / "ca.crt", mesh.mesh_authority->Certificate());
  PutFile(folder / "node.crt", credential.certificate);
  PutFile(folder / "node.key", credential.key, kSecret);
}

void PutAdminCredential(const fs::path& folder, const MeshSetup& mesh, const PlannedNode& node) {
  const Credential credential =
      mesh.admin_authority->Issue({node.name, {"localhost"}, {"127.0.0.1", node.address}});
  PutFile(folder / "server.crt", credential.certificate);
  PutFile(folder / "server.key", credential.key, kSecret);
}

}  // namespace

void MakeNodeRoot(const Layout& layout, const MeshSetup& mesh, const PlannedNode& node) {
  const fs::path root = layout.Node(node.id);
  PrepareState(root);
  fs::create_directories(layout.NodeBox(node.id));
  const fs::path etc = root / "etc/kalo";
  PutFile(root / "etc.defaults/kaloinfo.conf", Defaults(node));
  PutFile(root / "etc.defaults/kalo/feed-ca.crt", mesh.feed_authority->Certificate());
  PutFile(root / "etc/kaloinfo.conf", "unique=\"" + node.model + "\"\n");
  const fs::path keys = root / "etc.defaults/kalo/patch-keys";
  fs::create_directories(keys);
  fs::copy_file(mesh.patch_keys.Public(), keys / "box.pem");
  PutFile(etc / "node.conf",
          "id=\"" + std::to_string(node.id) + "\"\nname=\"" + node.name + "\"\n");
  PutFile(etc / "webapid.json", ServerConfiguration(node));
  PutFile(etc / "users.json", mesh.users, kSecret);
  PutMeshCredential(etc / "mesh", mesh, node);
  PutAdminCredential(etc / "tls", mesh, node);
  if (node.id == 0) PutFile(etc / "mesh/nodes.json", NodesJson(mesh.nodes));
}

}  // namespace kalo::box
