// The update library.

#include <charconv>
#include <stdexcept>

#include "platform/update/credentials.h"
#include "platform/update/group_update.h"
#include "platform/update/patch.h"
#include "platform/update/response.h"
#include "platform/update/system_update.h"
#include "platform/update/update_node.h"
#include "platform/update/update_util.h"
#include "platform/update/version.h"
#include "tests/fake/json_text.h"
#include "tests/fake/platform.h"

using fake::Platform;

namespace KALO::MESH::SDK {

Response Response::FromEnvelope(const Json::Value& envelope) {
  Response response;
  if (!envelope.isObject() || !envelope["success"].isBool()) return response;
  response.valid_ = true;
  response.success_ = envelope["success"].asBool();
  response.data_ = envelope["data"];
  if (!response.success_) response.error_number_ = envelope["error"]["code"].asInt();
  return response;
}

bool Response::GetData(Json::Value& data) const {
  if (data_.isNull()) return false;
  data = data_;
  return true;
}

namespace Webapi {

int KaloCredInit(bool load) {
  Platform::Current().Note(std::string("cred_init") + (load ? "" : " false"));
  return Platform::Current().cred_result;
}

}  // namespace Webapi

namespace Utils {

// "…-BUILD" or "…-BUILD … NANO", as the tests write versions.
int GetBuildNum(const std::string& version, int& build, int& nano) {
  Platform::Current().Note("build_num " + version);
  build = 0;
  nano = 0;
  const std::size_t hyphen = version.find('-');
  if (hyphen == std::string::npos) return -1;
  const char* end = version.data() + version.size();
  if (std::from_chars(version.data() + hyphen + 1, end, build).ec != std::errc()) return -1;
  const std::size_t blank = version.rfind(' ');
  if (blank > hyphen && blank != std::string::npos) {
    std::from_chars(version.data() + blank + 1, end, nano);
  }
  return 0;
}

}  // namespace Utils

namespace Upgrade {

Node::Node(std::int32_t node_id, std::string address)
    : node_id_(node_id), address_(std::move(address)) {}

std::int32_t Node::GetNodeID() const {
  Platform::Current().ThrowIfWanted("node_id " + std::to_string(node_id_));
  return node_id_;
}

Response Node::Upload(const std::string& api, const std::string& method, int version,
                      const Json::Value& params, const std::string& path) const {
  Platform& platform = Platform::Current();
  platform.Note("upload " + std::to_string(node_id_) + " " + api + " " + method + " " +
                std::to_string(version) + " " + fake::ToText(params) + " " + path);
  const auto envelope = platform.upload_envelopes.find(node_id_);
  if (envelope == platform.upload_envelopes.end()) throw std::runtime_error("no route");
  return Response::FromEnvelope(envelope->second);
}

UpdateNode::UpdateNode(std::int32_t node_id, const Client::NodeInfo& info)
    : Node(node_id, info.address),
      build_num_(info.build_num),
      nano_num_(info.nano_num),
      full_version_(info.full_version),
      unique_(info.unique) {}

const std::string& UpdateNode::GetUnique() const {
  Platform::Current().ThrowIfWanted("unique " + unique_);
  return unique_;
}

std::vector<UpdateNode> UpdateNode::ToUpdateNodes(
    const std::map<std::uint32_t, Client::NodeInfo>& infos,
    const std::map<std::uint32_t, Client::RepeaterAccessInfo>& access_infos) {
  std::vector<UpdateNode> nodes;
  for (const auto& [id, info] : infos) {
    if (id == 0 || access_infos.contains(id)) nodes.emplace_back(static_cast<int>(id), info);
  }
  return nodes;
}

PatchInfo Patch::ParsePatchInfo(const std::string& path) {
  Platform& platform = Platform::Current();
  platform.Note("parse_patch " + path);
  const auto patch = platform.patches.find(path);
  return patch != platform.patches.end() ? patch->second : PatchInfo{};
}

SystemUpdate::SystemUpdate(bool is_auto) : is_auto_(is_auto) {}

void SystemUpdate::CheckNewUpdateByHBXInfo(bool& found, tag_UPDATE_INFO& update,
                                           const tag_hbxinfo& info, bool small_updates) {
  Platform& platform = Platform::Current();
  platform.Note(std::string("regular_check ") + (is_auto_ ? "auto " : "manual ") + info.major +
                " " + info.minor + " " + info.build + " " + info.unique + " " +
                (small_updates ? "true" : "false"));
  const auto offer = platform.regular_offers.find(info.unique);
  if (offer == platform.regular_offers.end()) return;
  found = offer->second.found;
  update.type = offer->second.type;
  update.version = offer->second.version;
}

int NanoJson::CheckNanoUpdate(const std::string& unique, int build) {
  Platform::Current().Note("nano_update " + unique + " " + std::to_string(build));
  return Platform::Current().nano_number;
}

std::vector<std::string> Upgrade::GetUpgradePath(const std::string& target,
                                                 const std::string& current,
                                                 const std::string& unique) {
  Platform& platform = Platform::Current();
  platform.Note("upgrade_path " + target + " " + current + " " + unique);
  const auto path = platform.upgrade_paths.find(current);
  return path != platform.upgrade_paths.end() ? path->second : std::vector<std::string>{};
}

bool UpdateUtil::ParseJsonRootFromFile(const std::string& path, Json::Value& root) {
  Platform& platform = Platform::Current();
  platform.Note("parse_json " + path);
  const auto file = platform.json_files.find(path);
  root = file != platform.json_files.end() ? file->second : Json::Value();
  return file != platform.json_files.end();
}

bool UpdateUtil::CleanFolder(const char* folder) {
  Platform::Current().Note(std::string("clean_folder ") + folder);
  return !Platform::Current().stubborn_folders.contains(folder);
}

void UpdateUtil::SendNotification(bool success, bool is_auto, const std::string& version) {
  Platform::Current().Note(std::string("notify ") + (success ? "success" : "failure") +
                           (is_auto ? " auto " : " manual ") + version);
}

// The pure form is what stands behind the hyphen, as the tests write versions.
bool GroupUpdate::ConvertVersion(const std::string& version, std::string& pure) const {
  Platform::Current().Note("convert " + version);
  const std::size_t hyphen = version.find('-');
  if (hyphen == std::string::npos) return false;
  pure = version.substr(hyphen + 1);
  return true;
}

void GroupUpdate::AppendTarget(const std::string& unique, const std::string& version) {
  Platform::Current().Note("target " + unique + " " + version);
}

void GroupUpdate::SetJobStatus(std::int32_t total, std::int32_t done, std::int32_t fetched_mib,
                               std::int32_t percent) {
  Platform::Current().Note("job_set " + std::to_string(total) + " " + std::to_string(done) + " " +
                           std::to_string(fetched_mib) + " " + std::to_string(percent));
  total_ = total;
  done_ = done;
  fetched_mib_ = fetched_mib;
  percent_ = percent;
}

// Each counter but the total changes with a download, so that one that is lost shows.
void GroupUpdate::GetJobStatus(std::int32_t& total, std::int32_t& done, std::int32_t& fetched_mib,
                               std::int32_t& percent) const {
  Platform::Current().Note("job_get");
  total = total_;
  done = done_ + 1;
  fetched_mib = fetched_mib_ + 10;
  percent = percent_ + 25;
}

bool GroupUpdate::Download(const std::string& folder, bool is_auto, bool promotion) {
  Platform::Current().Note("download " + folder + (is_auto ? " auto" : " manual") +
                           (promotion ? " promotion" : ""));
  return Platform::Current().download_result;
}

bool GroupUpdate::GetPatchPath(const std::string& unique, const std::string& pure_version,
                               std::string& path) const {
  Platform::Current().Note("patch_path " + unique + " " + pure_version);
  path = "/store/" + unique + "_" + pure_version;
  return true;
}

bool GroupUpdate::PatchClean(const std::string& folder) {
  Platform::Current().Note("patch_clean " + folder);
  return true;
}

bool GroupUpdate::CancelDownload() {
  Platform::Current().Note("cancel_download");
  return Platform::Current().cancel_result;
}

bool UpdateUtil::IsAutoUpdating() {
  Platform::Current().Note("auto_updating");
  return Platform::Current().auto_updating;
}

std::map<std::int32_t, Response> UpdateUtil::SendWebAPIs(const std::vector<UpdateNode>& nodes,
                                                         const std::string& api,
                                                         const std::string& method, int version) {
  std::string ids;
  for (const UpdateNode& node : nodes) ids += " " + std::to_string(node.GetNodeID());
  Platform::Current().Note("send " + api + " " + method + " " + std::to_string(version) + ids);
  return {};
}

}  // namespace Upgrade
}  // namespace KALO::MESH::SDK
