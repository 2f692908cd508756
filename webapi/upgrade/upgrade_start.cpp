#include <syslog.h>
#include <unistd.h>

#include "platform/core/process.h"
#include "platform/mesh/client.h"
#include "platform/paths.h"
#include "webapi/error_codes.h"
#include "webapi/exceptions.h"
#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

using SDK::Client::MeshClient;
using SDK::Client::MeshClientFactory;

// Fixed numbers in the log lines of this file, which support staff search for.
namespace line {
constexpr int kDownloadGuard = 96;
constexpr int kDownloadGuardUnknown = 99;
constexpr int kNoClient = 107;
constexpr int kNotAccepted = 113;
constexpr int kNoNodeInfos = 2303;
constexpr int kNoAccessInfos = 2309;
}  // namespace line

constexpr std::uint32_t kCodeMask = 0xFFFF;

// A running download sets the error code, but does not stop the update: only a failure of another
// kind does.
// @return whether to go on.
bool GuardAgainstDownload(UpgradeHandler& handler, APIResponse& response) {
  try {
    std::string status;
    int percent = 0;
    handler.ProgressFromFile(paths::kDownloadProgress, status, percent);
    if (status == "downloading") throw WebapiException("Patches are downloading.");
  } catch (const WebapiException& e) {
    AnswerException(response, line::kDownloadGuard, "API Error", e, error::kUpgradeNotStarted);
  } catch (const std::exception& e) {
    AnswerException(response, line::kDownloadGuardUnknown, "Unknown Exception", e, error::kGeneral);
    return false;
  }
  return true;
}

// @return null when there is none; the answer is set then.
std::shared_ptr<MeshClient> GetClientOrAnswer(APIResponse& response) {
  try {
    return MeshClientFactory::GetClient();
  } catch (const std::exception& e) {
    AnswerException(response, line::kNoClient, "Unknown Exception", e, error::kGeneral);
    return nullptr;
  }
}

}  // namespace

void UpgradeHandler::Start() {
  try {
    if (!GuardAgainstDownload(*this, *response_)) return;
    const std::shared_ptr<MeshClient> client = GetClientOrAnswer(*response_);
    if (client == nullptr) return;
    if ((client->StartSystemUpdate() & kCodeMask) != 0) {
      Log(LOG_ERR, line::kNotAccepted, "Dbus return false to start system update");
      response_->SetError(error::kBusy, Json::Value());
      return;
    }
    ProgressToFile(paths::kUpgradeProgress, "upgrading", 0);
    response_->SetSuccess(Json::Value());
  } catch (const WebapiException& e) {
    AnswerException(*response_, __LINE__, "API Error", e, error::kUpgradeNotStarted);
  } catch (const std::exception& e) {
    AnswerException(*response_, __LINE__, "Unknown Exception", e, error::kGeneral);
  }
}

std::vector<UpgradeHandler::UpdateNode> UpgradeHandler::GetUpdateNodes() {
  const std::shared_ptr<MeshClient> client = MeshClientFactory::GetClient();
  const auto infos = client->GetNodeInfos();
  if (infos.code != 0) {
    Log(LOG_ERR, line::kNoNodeInfos, "Failed to get node infos");
    throw WebapiException("Failed to get node infos");
  }
  const auto access_infos = client->GetRepeaterAccessInfos();
  if (access_infos.code != 0) {
    Log(LOG_ERR, line::kNoAccessInfos, "Failed to get access infos");
    throw WebapiException("Failed to get access infos");
  }
  return UpdateNode::ToUpdateNodes(infos.nodes, access_infos.nodes);
}

int UpgradeHandler::ForkAndReturnWebapi(const Json::Value& data) {
  const int pid = KLIBCProcFork(0);
  if (pid < 0) {
    response_->SetError(error::kNoBackgroundProcess, Json::Value());
    return pid;
  }
  if (pid > 0) response_->SetSuccess(data);
  // On both sides: the child must survive the request's session, and the parent, which retires
  // after this answer, leaves the server's session too.
  setsid();
  return pid;
}

}  // namespace KALO::MESH::Webapi
