#include <syslog.h>

#include <map>
#include <sstream>
#include <unordered_map>

#include "platform/paths.h"
#include "webapi/exceptions.h"
#include "webapi/key_value.h"
#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

// The keys of one kind of patch. "avaliable" is how other programs read and write them.
struct PatchKeys {
  const char* available;
  const char* version;
  const char* groups;
};

constexpr PatchKeys kFullKeys = {"avaliable_full", "patch_full", "uniques_full"};
constexpr PatchKeys kNanoKeys = {"avaliable_nano", "patch_nano", "uniques_nano"};
constexpr PatchKeys kPromoKeys = {"avaliable_promo", "patch_promo", "uniques_promo"};

const PatchKeys& ChooseKeys(bool nano, bool promo) {
  if (promo) return kPromoKeys;
  return nano ? kNanoKeys : kFullKeys;
}

void SetKey(const char* key, const std::string& value, const char* failure) {
  if (KLIBCFileSetKeyValue(paths::kPatchInformation, key, value.c_str(), 0) < 0) {
    throw WebapiException(failure);
  }
}

UpgradeHandler::IdGroup ParseGroup(const std::string& segment) {
  UpgradeHandler::IdGroup group;
  std::istringstream words(segment);
  words >> group.unique;
  std::int32_t id = 0;
  while (words >> id) {
    group.ids.push_back(id);
    group.has_cap = group.has_cap || id == 0;
  }
  return group;
}

// The mesh's nodes, fetched when the first one is looked for. Asks no node for more than its id,
// and none behind the one that is looked for; each once, so that a list of ids takes linear time.
class NodeList {
 public:
  explicit NodeList(UpgradeHandler& handler) : handler_(handler) {}

  // @return the first node with this id.
  // @throws WebapiException when no node has it.
  const UpgradeHandler::UpdateNode& Find(std::int32_t id) {
    if (nodes_.empty()) nodes_ = handler_.GetUpdateNodes();
    while (!by_id_.contains(id)) {
      if (by_id_end_ == nodes_.size()) throw WebapiException("Failed to get unique");
      const auto& node = nodes_[by_id_end_++];
      by_id_.emplace(node.GetNodeID(), &node);
    }
    return *by_id_.at(id);
  }

 private:
  UpgradeHandler& handler_;
  std::vector<UpgradeHandler::UpdateNode> nodes_;
  std::size_t by_id_end_ = 0;  // the first node that was not asked for its id yet
  std::unordered_map<std::int32_t, const UpgradeHandler::UpdateNode*> by_id_;
};

}  // namespace

void UpgradeHandler::GetUniqueList(const std::vector<std::int32_t>& ids,
                                   std::vector<IdGroup>& groups) {
  groups.clear();
  std::map<std::string, IdGroup> by_unique;
  NodeList nodes(*this);
  for (const std::int32_t id : ids) {
    std::string unique;
    if (id == 0) {
      // Here alone the CAP's model comes from its configuration, and an empty one is a model too.
      KeyValue value = ReadKeyValue(paths::kDefaults, "unique");
      if (value.length < 0) {
        Log(LOG_ERR, __LINE__, "Failed to get the unique name of CAP");
        continue;
      }
      unique = std::move(value.text);
    } else {
      unique = nodes.Find(id).GetUnique();
    }
    IdGroup& group = by_unique[unique];
    group.unique = unique;
    group.has_cap = group.has_cap || id == 0;
    group.ids.push_back(id);
  }
  for (auto& [unique, group] : by_unique) groups.push_back(std::move(group));
}

void UpgradeHandler::UniqueGroupsToStr(const std::vector<IdGroup>& groups, std::string& text) {
  for (const IdGroup& group : groups) {
    if (group.ids.empty()) continue;
    std::string ids;
    for (const std::int32_t id : group.ids) ids += " " + std::to_string(id);
    if (!text.empty()) text += " ";
    // The second blank is part of the stored form.
    text += group.unique + " " + ids + ";";
  }
}

void UpgradeHandler::UniqueGroupFromStr(const std::string& text, std::vector<IdGroup>& groups) {
  std::size_t begin = text.find_first_not_of(';');
  while (begin != std::string::npos) {
    const std::size_t end = text.find(';', begin);
    if (end == std::string::npos) return;
    groups.push_back(ParseGroup(text.substr(begin, end - begin)));
    begin = text.find_first_not_of(';', end);
  }
}

void UpgradeHandler::PatchAvailableToFile(const std::vector<std::int32_t>& ids,
                                          const PatchInfo& info, bool promo) {
  const PatchKeys& keys = ChooseKeys(info.type == "smallupdate", promo);
  if (!info.available) {
    SetKey(keys.available, "false", "Failed to remove available key in patch info file");
    // One key for all kinds: the last record that is not available decides it.
    SetKey("over_version", info.over_version ? "true" : "false",
           "Failed to write over version to patch info file");
    return;
  }
  SetKey(keys.available, "true", "Failed to write available key to patch info file");
  SetKey(keys.version, info.version, "Failed to write version to patch info file");
  std::vector<IdGroup> groups;
  GetUniqueList(ids, groups);
  std::string text;
  UniqueGroupsToStr(groups, text);
  SetKey(keys.groups, text, "Failed to write uniques key to patch info file");
}

void UpgradeHandler::PatchAvailableFromFile(PatchInfo& info, std::vector<IdGroup>& groups,
                                            bool nano, bool promo) {
  if (nano && promo) return;
  const PatchKeys& keys = ChooseKeys(nano, promo);
  groups.clear();
  info.available = false;
  const KeyValue available = ReadKeyValue(paths::kPatchInformation, keys.available);
  if (available.length <= 0 || available.text != "true") return;
  info.available = true;
  const KeyValue version = ReadKeyValue(paths::kPatchInformation, keys.version);
  if (version.length < 1) {
    throw WebapiException("Failed to get patch version from patch info file");
  }
  info.version = version.text;
  const KeyValue text = ReadKeyValue(paths::kPatchInformation, keys.groups);
  if (text.length < 0) {
    throw WebapiException("Failed to get model uniques from patch info file");
  }
  UniqueGroupFromStr(text.text, groups);
}

}  // namespace KALO::MESH::Webapi
