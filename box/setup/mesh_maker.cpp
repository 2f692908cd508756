#include "box/setup/mesh_maker.h"

#include <algorithm>
#include <stdexcept>

#include "box/feed_address.h"
#include "box/setup/certificates.h"
#include "box/setup/firmware_tree.h"
#include "box/setup/node_files.h"
#include "box/setup/put_file.h"
#include "host/update/patch_format/description.h"

namespace kalo::box {
namespace fs = std::filesystem;
namespace {

constexpr const char* kMarker = ".kalo-box";

// One install for all models: the trees differ in their VERSION alone.
void MakeFirstFirmware(const Layout& layout, const fs::path& build,
                       const std::vector<std::string>& models, const std::string& version) {
  const fs::path first = layout.Firmware() / models.front();
  fs::create_directories(layout.Firmware());
  MakeFirmwareTree(build, DescribeFirmware(models.front(), version), 0, first);
  for (const std::string& model : models) {
    const fs::path tree = layout.Firmware() / model;
    if (tree == first) continue;
    fs::copy(first, tree, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    PutVersion(DescribeFirmware(model, version), tree);
  }
}

void MakeOwnVersions(const Layout& layout, const std::vector<PlannedNode>& nodes,
                     const std::map<int, std::string>& versions) {
  for (const auto& [id, version] : versions) {
    const auto node = std::find_if(nodes.begin(), nodes.end(), [wanted = id](const auto& planned) {
      return planned.id == wanted;
    });
    if (node == nodes.end()) throw std::runtime_error("there is no node " + std::to_string(id));
    PutFile(layout.FirstVersion(id),
            patch::WriteDescription(DescribeFirmware(node->model, version)));
  }
}

void MakeFeed(const Layout& layout, const CertificateAuthority& authority) {
  constexpr unsigned kSecret = 0600;
  fs::create_directories(layout.Feed());
  const Credential credential = authority.Issue({"update feed", {}, {kFeedAddress}});
  PutFile(layout.FeedTls() / "server.crt", credential.certificate);
  PutFile(layout.FeedTls() / "server.key", credential.key, kSecret);
}

}  // namespace

void ClearState(const Layout& layout) {
  const fs::path& state = layout.State();
  fs::create_directories(state);
  const bool marked = fs::exists(state / kMarker);
  for (const auto& entry : fs::directory_iterator(state)) {
    if (marked || entry.path() == layout.Lock()) continue;
    throw std::runtime_error(state.native() + " holds something else; name a folder of its own");
  }
  for (const fs::path& old :
       {layout.Description(), layout.ClientCa(), layout.Log(), layout.Firmware(),
        layout.LauncherRoot(), layout.Nodes(), layout.Feed(), layout.FeedTls()}) {
    fs::remove_all(old);
  }
  PutFile(state / kMarker, "");
}

NewMesh MakeMesh(const Layout& layout, const fs::path& build, int nodes,
                 const PatchKeys& patch_keys, const std::string& first_version,
                 const std::map<int, std::string>& node_versions) {
  NewMesh mesh{PlanMesh(nodes), MakeAdministrator()};
  patch_keys.MakeWhenMissing();
  const CertificateAuthority mesh_authority("Mesh");
  const CertificateAuthority admin_authority("Box");
  const CertificateAuthority feed_authority("Maker");
  const MeshSetup setup{
      mesh.nodes, &mesh_authority, &admin_authority, &feed_authority, UsersJson(mesh.administrator),
      patch_keys};
  for (const PlannedNode& node : mesh.nodes) MakeNodeRoot(layout, setup, node);
  PutFile(layout.ClientCa(), admin_authority.Certificate());
  MakeFirstFirmware(layout, build, ModelsOf(mesh.nodes), first_version);
  MakeOwnVersions(layout, mesh.nodes, node_versions);
  MakeFeed(layout, feed_authority);
  return mesh;
}

}  // namespace kalo::box
