#include "webapi/upgrade_handler.h"

#include <limits>

namespace KALO::MESH::Webapi {

namespace {

// The words are the upgrade engine's own, "analying_system" included: it writes them so. Made once
// for all handlers: a poll would spend a quarter of its own time on it.
const std::map<std::string, std::int32_t>& KnownStepRanks() {
  static const std::map<std::string, std::int32_t> ranks = {
      {"none", 0},
      {"preparing", 1},
      {"waiting_remote_upgrading", 2},
      {"analying_system", 3},
      {"updating_programs", 4},
      {"updating_configurations", 5},
      {"start_service", 6},
      {"reboot", 7},
      {"shutdown", 8},
      {"finish", 9},
      {"failed", std::numeric_limits<std::int32_t>::max()},
  };
  return ranks;
}

}  // namespace

UpgradeHandler::UpgradeHandler(APIRequest* request, APIResponse* response)
    : request_(request), response_(response), step_ranks_(KnownStepRanks()) {}

UpgradeHandler::~UpgradeHandler() = default;

}  // namespace KALO::MESH::Webapi
