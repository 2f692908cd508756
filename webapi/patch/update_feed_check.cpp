// Decides, node by node, whether a newer firmware exists and of which kind, and records the result
// in the patch-information file.

#include <syslog.h>

#include <cstdio>
#include <map>
#include <optional>
#include <string_view>

#include "platform/update/system_update.h"
#include "platform/update/version.h"
#include "webapi/exceptions.h"
#include "webapi/log.h"
#include "webapi/patch/promotion.h"
#include "webapi/patch/update_feed.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

using PatchInfo = UpgradeHandler::PatchInfo;
using UpdateNode = UpgradeHandler::UpdateNode;

// Up to this build the regular check is not asked for small updates.
constexpr int kLastWithoutSmallUpdates = 9354;
constexpr std::string_view kSmallUpdateMark = " Update";

// What one node is offered. The numbers of a text that is no version are 0.
struct Offer {
  std::string version;
  int build = 0;
  int nano = 0;
  bool is_beta = false;

  void TakeNumbers() {
    if (!version.empty()) SDK::Utils::GetBuildNum(version, build, nano);
  }
};

SDK::Upgrade::tag_hbxinfo DescribeNode(int build, const std::string& unique) {
  SDK::Upgrade::tag_hbxinfo info{};
  std::snprintf(info.major, sizeof(info.major), "5");
  std::snprintf(info.minor, sizeof(info.minor), "2");
  std::snprintf(info.build, sizeof(info.build), "%d", build);
  std::snprintf(info.unique, sizeof(info.unique), "%s", unique.c_str());
  return info;
}

// One check of the whole mesh, from the first node to the record written.
class MeshCheck {
 public:
  MeshCheck(UpgradeHandler& handler, bool is_auto) : handler_(handler), is_auto_(is_auto) {}

  void Run(const std::vector<UpdateNode>& nodes) {
    FindHighest(nodes);
    for (const UpdateNode& node : nodes) {
      if (!Examine(node)) return;
    }
  }

  // @return the record that the request reports.
  PatchInfo Write() {
    if (!full_.available) {
      handler_.PatchAvailableToFile(std::vector<std::int32_t>(), full_, false);
      return full_;
    }
    std::vector<std::int32_t> full_ids;
    std::vector<std::int32_t> nano_ids;
    for (const auto& [id, version] : offers_) {
      const bool takes_full = version == full_.version;
      if (takes_full) full_ids.push_back(id);
      const bool takes_nano = takes_full ? nano_.available : version == nano_.version;
      if (takes_nano) nano_ids.push_back(id);
    }
    handler_.PatchAvailableToFile(full_ids, full_, IsPromotion(full_.build_num));
    if (!nano_.available) return full_;
    handler_.PatchAvailableToFile(nano_ids, nano_, false);
    return nano_;
  }

 private:
  void FindHighest(const std::vector<UpdateNode>& nodes) {
    for (const UpdateNode& node : nodes) {
      const bool first = &node == &nodes.front();
      if (first || handler_.CompareVersion(highest_, node.GetFullVersion()) < 0) {
        highest_ = node.GetFullVersion();
      }
    }
  }

  // @return false when the remaining nodes are not to be examined.
  bool Examine(const UpdateNode& node) {
    SDK::Upgrade::SystemUpdate update(is_auto_);
    std::string os_version;
    int build = 0;
    int nano = 0;
    if (!handler_.ParseVersion(node.GetFullVersion(), os_version, build, nano)) {
      Log(LOG_ERR, __LINE__, "Parse version %s for %d fail", node.GetFullVersion().c_str(),
          node.GetNodeID());
      throw WebapiException("Parse version error");
    }
    bool found = false;
    SDK::Upgrade::tag_UPDATE_INFO info;
    update.CheckNewUpdateByHBXInfo(found, info, DescribeNode(build, node.GetUnique()),
                                   build > kLastWithoutSmallUpdates);
    Offer offer{info.version};
    offer.TakeNumbers();
    if (found && IsOlderThanMesh(offer, build)) {
      full_.available = false;
      full_.over_version = true;
      nano_.available = false;
      nano_.over_version = true;
      return false;
    }
    if (!found || handler_.CompareVersion(offer.version, node.GetFullVersion()) <= 0) {
      const std::optional<FeedOffer> feed = AskUpdateFeed(node.GetUnique(), build);
      if (!feed || feed->version.empty()) {
        Log(LOG_DEBUG, __LINE__, "No new update for node %d", node.GetNodeID());
        return true;
      }
      // Not compared with the node's version: the feed offers what it was asked for.
      offer.version = feed->version;
      offer.is_beta = feed->is_beta;
      offer.TakeNumbers();
    }
    Take(node.GetNodeID(), offer, build);
    return true;
  }

  // At an equal build the offer is held against the newest node, not against this one.
  bool IsOlderThanMesh(const Offer& offer, int build) {
    return offer.build < build ||
           (offer.build == build && handler_.CompareVersion(offer.version, highest_) < 0);
  }

  // The oldest offer wins on purpose: it is the version that every node can reach.
  void Take(std::int32_t id, const Offer& offer, int build) {
    offers_[id] = offer.version;
    if (full_.available && handler_.CompareVersion(full_.version, offer.version) <= 0) return;
    full_.available = true;
    full_.version = offer.version;
    full_.build_num = offer.build;
    full_.nano_num = offer.nano;
    full_.is_beta = offer.is_beta;
    if (offer.nano == 0 || offer.build != build) {
      full_.type = "hbx";
      if (!IsPromotion(full_.build_num)) handler_.CheckNanoVersion(full_, nano_);
    } else {
      full_.type = "smallupdate";
      nano_.available = false;
    }
  }

  UpgradeHandler& handler_;
  bool is_auto_;
  std::string highest_;
  PatchInfo full_;
  PatchInfo nano_;
  std::map<std::int32_t, std::string> offers_;
};

}  // namespace

UpgradeHandler::PatchInfo UpgradeHandler::PatchCheckImpl(bool is_auto) {
  MeshCheck check(*this, is_auto);
  check.Run(GetUpdateNodes());
  return check.Write();
}

void UpgradeHandler::CheckNanoVersion(const PatchInfo& full, PatchInfo& nano) {
  const std::vector<UpdateNode> nodes = GetUpdateNodes();
  if (nodes.empty()) {
    Log(LOG_DEBUG, __LINE__, "Do not get nano version for %s", full.version.c_str());
    return;
  }
  const int number =
      SDK::Upgrade::NanoJson::CheckNanoUpdate(nodes.front().GetUnique(), full.build_num);
  // Available even when there is no such small update: publishers put one beside each full release
  // below the promotions, with the number 0 when it changes nothing.
  nano.available = true;
  nano.type = "smallupdate";
  // The prefix is as long as what stands from the mark on, not as what stands before it: readers of
  // the record know it so. Without a mark the whole text stays.
  const std::size_t mark = full.version.find(kSmallUpdateMark);
  const std::size_t length =
      mark == std::string::npos ? full.version.size() : full.version.size() - mark;
  nano.version = full.version.substr(0, length) + " Update " + std::to_string(number);
  nano.build_num = full.build_num;
  nano.nano_num = number;
}

void UpgradeHandler::CheckShouldUpdate(const Json::Value& answers, const std::string& version,
                                       std::vector<std::int32_t>& ids) {
  ids.clear();
  if (!answers.isObject() || !answers["result"].isArray()) return;
  for (const Json::Value& answer : answers["result"]) {
    Json::Value data;
    int id = 0;
    if (!GetDataFromResult(answer, data, id)) continue;
    if (!data.isObject() || !data.isMember("available") || !data.isMember("version")) continue;
    const Json::Value& running = data["version"];
    if (!running.isConvertibleTo(Json::stringValue)) continue;
    if (version.find(running.asString()) != std::string::npos) ids.push_back(id);
  }
}

void UpgradeHandler::PatchAvailableToFile(const Json::Value& answers, const PatchInfo& info) {
  std::vector<std::int32_t> ids;
  CheckShouldUpdate(answers, info.version, ids);
  PatchAvailableToFile(ids, info, false);
}

}  // namespace KALO::MESH::Webapi
