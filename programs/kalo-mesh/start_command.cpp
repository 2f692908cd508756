#include <iostream>

#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/silence.h"
#include "programs/kalo-mesh/terminal.h"
#include "programs/kalo-mesh/update_report.h"

namespace kalo::cli {
namespace {

int Follow(ApiClient& client, const MeshView& before, const CommonOptions& common,
           const StartOptions& options) {
  Silence silence;
  BarBoard board(common.json ? silence.Stream() : std::cout, !common.json && IsTerminal());
  UpdateWatch watch(client, before, options.is_auto);
  const bool ended = watch.Follow(board, options.deadline);
  const bool success = ended && watch.AllAsWanted();
  if (common.json) {
    PrintResultsAsJson(watch, success);
  } else {
    PrintResults(watch);
  }
  if (!ended) throw Failure(kFailed, "the update had not ended when the time was up (--timeout)");
  if (!success) throw Failure(kFailed, "not every node runs the new version; see the table");
  return kOk;
}

}  // namespace

int RunStart(const CommonOptions& common, const StartOptions& options) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  const MeshView before = options.wait ? ReadMesh(FetchNodes(client)) : MeshView{};
  client.Call("KALO.Mesh.Upgrade", 1, "start", Json::objectValue);
  if (options.wait) return Follow(client, before, common, options);
  if (common.json) {
    std::cout << "{}\n";
  } else {
    std::cout << "The update has started. Do not switch off any node. See kalo-mesh progress.\n";
  }
  return kOk;
}

}  // namespace kalo::cli
