// The request with which a user hands in one patch file per model, to be sent to every node of that
// model which runs an older build.

#include <syslog.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <optional>
#include <set>

#include "platform/core/file.h"
#include "platform/core/key_value.h"
#include "platform/paths.h"
#include "platform/update/patch.h"
#include "platform/update/update_util.h"
#include "webapi/error_codes.h"
#include "webapi/exceptions.h"
#include "webapi/log.h"
#include "webapi/transfer/patch_lock.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

using SDK::Upgrade::Patch;
using SDK::Upgrade::UpdateNode;
using SDK::Upgrade::UpdateUtil;
using UploadWork = UpgradeHandler::UploadWork;

// The files that a request handed in.
struct HandedIn {
  std::vector<std::string> parsed;  // moved and parsed, patch or not, in that order
  std::map<std::string, SDK::Upgrade::PatchInfo> patches;  // by the model that each is for
};

void RemoveFiles(const HandedIn& files) {
  for (const std::string& file : files.parsed) unlink(file.c_str());
}

// Gives the stored upload the name that tells its model, in the folder where it is.
std::string RenameUpload(const std::string& unique, const std::string& name,
                         const std::string& stored) {
  std::string folder = std::filesystem::path(stored).parent_path();
  if (folder.empty()) folder = ".";
  std::string target = folder + "/" + unique + "_" + name;
  if (KLIBCSysRename(stored.c_str(), target.c_str()) != 0) {
    Log(LOG_ERR, __LINE__, "rename from [%s] to [%s] failed", stored.c_str(), target.c_str());
    throw WebapiException("Rename file failed");
  }
  return target;
}

SDK::Upgrade::PatchInfo TakePatch(const APIRequest& request, const std::string& unique,
                                  std::vector<std::string>& parsed) {
  const std::optional<std::string> name = request.GetAndCheckString(unique + "_file");
  const std::optional<std::string> stored = request.GetAndCheckString(unique + "_file_tmp");
  if (!name || !stored) {
    Log(LOG_ERR, __LINE__, "No patch for %s", unique.c_str());
    throw WebapiParamException("Patch missed");
  }
  Log(LOG_DEBUG, __LINE__, "File [%s] [%s]", name->c_str(), stored->c_str());
  if (KLIBCFileExist(stored->c_str()) == 0) {
    Log(LOG_ERR, __LINE__, "File not exist at %s", stored->c_str());
    throw WebapiParamException("File not exist");
  }
  const std::string path = RenameUpload(unique, *name, *stored);
  SDK::Upgrade::PatchInfo patch = Patch::ParsePatchInfo(path);
  parsed.push_back(path);
  if (!patch.valid || patch.unique != unique) {
    Log(LOG_ERR, __LINE__, "%s is an incorrect patch", path.c_str());
    throw WebapiParamException("Patch incorrect");
  }
  return patch;
}

// Every model of the mesh must be given a patch. What was taken before a failure is in the result.
void TakePatches(const APIRequest& request, const std::vector<UpdateNode>& nodes, HandedIn& files) {
  std::set<std::string> uniques;
  for (const UpdateNode& node : nodes) uniques.insert(node.GetUnique());
  for (const std::string& unique : uniques) {
    const auto& patch = files.patches[unique] = TakePatch(request, unique, files.parsed);
    Log(LOG_DEBUG, __LINE__, "%s %d-%d", unique.c_str(), patch.build_num, patch.nano_num);
  }
}

// All patches of one upload carry one version, whatever the model.
// @return its text.
std::string AgreedVersion(const HandedIn& files) {
  if (files.patches.empty()) return "";
  const SDK::Upgrade::PatchInfo& first = files.patches.begin()->second;
  for (const auto& [unique, patch] : files.patches) {
    if (patch.build_num == first.build_num && patch.nano_num == first.nano_num) continue;
    Log(LOG_ERR, __LINE__, "expect patch version is %d-%d, but %d-%d", first.build_num,
        first.nano_num, patch.build_num, patch.nano_num);
    throw WebapiParamException("Patch Version not equal");
  }
  return first.version;
}

bool IsOlder(const UpdateNode& node, const SDK::Upgrade::PatchInfo& patch) {
  if (node.GetBuildNum() != patch.build_num) return node.GetBuildNum() < patch.build_num;
  return node.GetNanoNum() < patch.nano_num;
}

std::vector<UploadWork> ChooseNodes(UpgradeHandler& handler, std::vector<UpdateNode>& nodes,
                                    const HandedIn& files) {
  std::vector<UploadWork> works;
  for (const auto& [unique, patch] : files.patches) {
    for (UpdateNode& node : nodes) {
      if (node.GetUnique() != unique || !IsOlder(node, patch)) continue;
      Log(LOG_DEBUG, __LINE__, "Add node %d (%s %d-%d) to upload list", node.GetNodeID(),
          unique.c_str(), node.GetBuildNum(), node.GetNanoNum());
      works.push_back(handler.createUploadWork(node, patch.path, ""));
    }
  }
  return works;
}

void CleanNodes(const std::vector<UpdateNode>& nodes) {
  try {
    UpdateUtil::SendWebAPIs(nodes, "KALO.Core.Upgrade.Patch", "clean", 1);
  } catch (...) {
    Log(LOG_ERR, __LINE__, "Failed to cleanup patchs");
  }
}

// Looks at every node's answer and removes its patch file.
// @return the last failing node's code; empty when every upload succeeded.
std::optional<int> CheckWorks(const std::vector<UploadWork>& works) {
  std::optional<int> code;
  for (const UploadWork& work : works) {
    if (!work.response.IsSuccess()) {
      if (work.response.IsValid()) {
        code = work.response.GetErrno();
        Log(LOG_ERR, __LINE__, "node %d upload failed with errno %d", work.node->GetNodeID(),
            *code);
      } else {
        code = error::kNoUsableAnswer;
        Log(LOG_ERR, __LINE__, "node %d upload failed with invalid response",
            work.node->GetNodeID());
      }
    }
    unlink(work.patchPath.c_str());
  }
  return code;
}

// Records a complete upload and answers with what the first node said of it.
void RecordAndAnswer(UpgradeHandler& handler, APIResponse& response,
                     const std::vector<UploadWork>& works, const std::string& version) {
  if (KLIBCFileSetKeyValue(paths::kPatchInformation, "patch_upload", version.c_str(), 0) < 0) {
    Log(LOG_ERR, __LINE__, "Failed to write version to patch info file");
    response.SetError(error::kGeneral, Json::Value());
    return;
  }
  if (!handler.UploadResultToFile(works)) {
    Log(LOG_ERR, __LINE__, "Failed to write uploaded list");
    response.SetError(error::kGeneral, Json::Value());
    return;
  }
  Json::Value data;
  for (const UploadWork& work : works) {
    if (!work.response.IsSuccess() || !work.response.GetData(data)) continue;
    response.SetSuccess(data);
    return;
  }
  Log(LOG_ERR, __LINE__, "Failed to get response result data from upload");
  KLIBCFileRemoveKey(paths::kPatchInformation, "uploaded_list");
  response.SetError(error::kGeneral, Json::Value());
}

void UploadUnderLock(UpgradeHandler& handler, APIResponse& response,
                     const std::vector<UpdateNode>& nodes, std::vector<UploadWork>& works,
                     const std::string& version) {
  const PatchLock lock;
  if (!lock.IsTaken()) {
    Log(LOG_ERR, __LINE__, "Get patch lock fail");
    response.SetError(error::kBusy, Json::Value());
    return;
  }
  CleanNodes(nodes);
  // A hand upload replaces any download.
  unlink(paths::kDownloadProgress);
  unlink(paths::kUpgradeProgress);
  handler.UploadPatch(works);
  if (const std::optional<int> code = CheckWorks(works)) {
    Log(LOG_ERR, __LINE__, "Upload has failed");
    response.SetError(*code, Json::Value());
    return;
  }
  RecordAndAnswer(handler, response, works, version);
}

}  // namespace

void UpgradeHandler::PatchUpload() {
  HandedIn files;
  // What a bad parameter means changes on the way: nothing of its own, a patch that is missing or
  // wrong, patches that do not go together, nothing of its own.
  int parameter_code = error::kGeneral;
  const auto fail = [&](int line, const char* cause, int code) {
    Log(LOG_ERR, line, "Patch upload error, due to %s", cause);
    RemoveFiles(files);
    response_->SetError(code, Json::Value());
  };
  try {
    if (UpdateUtil::IsAutoUpdating()) {
      Log(LOG_ERR, __LINE__, "Is Autoupdating, can not upload patch now");
      response_->SetError(error::kAutoUpdating, Json::Value());
      return;
    }
    std::vector<UpdateNode> nodes = GetUpdateNodes();
    parameter_code = error::kBadPatch;
    TakePatches(*request_, nodes, files);
    parameter_code = error::kPatchVersionsDiffer;
    const std::string version = AgreedVersion(files);
    parameter_code = error::kGeneral;
    std::vector<UploadWork> works = ChooseNodes(*this, nodes, files);
    if (works.empty()) {
      Log(LOG_ERR, __LINE__, "No patch to upload");
      RemoveFiles(files);
      response_->SetError(error::kNoNodeNeedsPatch, Json::Value());
      return;
    }
    UploadUnderLock(*this, *response_, nodes, works, version);
  } catch (const WebapiParamException& e) {
    fail(__LINE__, e.what(), parameter_code);
  } catch (const std::exception& e) {
    fail(__LINE__, e.what(), error::kGeneral);
  } catch (...) {
    fail(__LINE__, "an unknown exception", error::kGeneral);
  }
}

}  // namespace KALO::MESH::Webapi
