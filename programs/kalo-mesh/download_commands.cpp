#include <iostream>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/bars.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/download_watch.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/silence.h"
#include "programs/kalo-mesh/terminal.h"

namespace kalo::cli {
namespace {

void Say(const CommonOptions& common, const char* sentence) {
  std::cout << (common.json ? "{}" : sentence) << "\n";
}

}  // namespace

int RunDownload(const CommonOptions& common, const DownloadOptions& options) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  Silence silence;
  BarBoard board(common.json ? silence.Stream() : std::cout, !common.json && IsTerminal());
  StartDownload(client, options.promotion);
  const std::string version = FollowDownload(client, board, false);
  if (common.json) {
    Json::Value root(Json::objectValue);
    root["version"] = version;
    std::cout << WriteJson(root) << "\n";
  } else {
    std::cout << Printable(version)
              << " is on every node that needs it. Next: kalo-mesh start --wait\n";
  }
  return kOk;
}

int RunCancel(const CommonOptions& common) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  client.Call("KALO.Mesh.Upgrade.Download", 1, "cancel", Json::objectValue);
  Say(common, "The download is cancelled.");
  return kOk;
}

int RunClean(const CommonOptions& common) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  client.Call("KALO.Mesh.Upgrade.Patch", 1, "clean", Json::objectValue, ApiClient::kLongPatience);
  Say(common, "Every patch that the mesh held is gone.");
  return kOk;
}

}  // namespace kalo::cli
