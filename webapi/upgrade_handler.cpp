#include "webapi/upgrade_handler.h"

#include <array>
#include <limits>
#include <utility>

namespace KALO::MESH::Webapi {

namespace {

// The words are the upgrade engine's own, "analying_system" included: it writes them so. Constants,
// so that each map builds its strings once, in place.
constexpr std::array<std::pair<const char*, std::int32_t>, 11> kStepRanks = {{
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
}};

}  // namespace

UpgradeHandler::UpgradeHandler(APIRequest* request, APIResponse* response)
    : request_(request), response_(response), step_ranks_(kStepRanks.begin(), kStepRanks.end()) {}

UpgradeHandler::~UpgradeHandler() = default;

}  // namespace KALO::MESH::Webapi
