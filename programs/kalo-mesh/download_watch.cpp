#include "programs/kalo-mesh/download_watch.h"

#include <chrono>
#include <thread>

#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/mesh_view.h"

namespace kalo::cli {
namespace {

using namespace std::chrono_literals;

constexpr const char* kApi = "KALO.Mesh.Upgrade.Download";
constexpr auto kLookEvery = 250ms;

// @return whether it goes on.
bool Judge(const std::string& status) {
  if (status == "downloading" || status == "finished") return true;
  if (status == "canceled") throw Failure(kFailed, "the download was cancelled");
  if (status == "no_enough_free_space") {
    throw Failure(kFailed,
                  "there is not enough free space on the main router for the download; "
                  "kalo-mesh clean frees what earlier ones left");
  }
  if (status == "failed") {
    throw Failure(kFailed,
                  "the download failed, or a node did not take its patch; the main router's system "
                  "log says why");
  }
  throw Failure(kFailed, "no download runs");
}

// A node that is away is no reason to wait for ever.
std::string MeshStatus(ApiClient& client, bool is_auto) {
  Json::Value as(Json::objectValue);
  as["auto"] = is_auto;
  as["skip_re_status"] = true;
  return TextOf(client.Call("KALO.Mesh.Upgrade", 2, "status", as), "status");
}

}  // namespace

void StartDownload(ApiClient& client, bool promotion) {
  Json::Value params(Json::objectValue);
  params["is_promotion"] = promotion;
  client.Call(kApi, 1, "start", params, ApiClient::kLongPatience);
}

bool StandsReady(ApiClient& client, const std::string& version, bool is_auto) {
  const Json::Value progress = client.Call(kApi, 2, "progress", Json::objectValue);
  if (TextOf(progress, "status") != "finished" || TextOf(progress, "version") != version)
    return false;
  return MeshStatus(client, is_auto) == "ready_upgrade";
}

std::string FollowDownload(ApiClient& client, BarBoard& board, bool is_auto) {
  for (;;) {
    const Json::Value progress = client.Call(kApi, 2, "progress", Json::objectValue);
    const std::string status = TextOf(progress, "status");
    (void)Judge(status);
    const bool fetched = status == "finished";
    board.Show({{"Download", fetched ? 100 : NumberOf(progress, "percent"),
                 fetched ? "handing it to the nodes" : "downloading"}});
    if (fetched) {
      const std::string state = MeshStatus(client, is_auto);
      if (state == "ready_upgrade") return TextOf(progress, "version");
      if (state == "none") throw Failure(kFailed, "what was downloaded is not there any more");
    }
    std::this_thread::sleep_for(kLookEvery);
  }
}

}  // namespace kalo::cli
