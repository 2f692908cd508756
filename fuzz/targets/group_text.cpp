// The records' lists of nodes by model.

#include "fuzz/fuzz_target.h"
#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "programs/kalomeshupgrade/wanted_patches.h"
#include "webapi/upgrade_handler.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  using KALO::MESH::Webapi::UpgradeHandler;
  const std::string text = TextOf(data, size);
  KALO::APIRequest request{Json::Value(Json::objectValue)};
  KALO::APIResponse response;
  UpgradeHandler handler(&request, &response);
  std::vector<UpgradeHandler::IdGroup> groups;
  handler.UniqueGroupFromStr(text, groups);
  // Groups without ids are not written, and a model without a name is none that reads back.
  std::erase_if(groups,
                [](const auto& group) { return group.ids.empty() || group.unique.empty(); });
  std::string written;
  handler.UniqueGroupsToStr(groups, written);
  std::vector<UpgradeHandler::IdGroup> again;
  handler.UniqueGroupFromStr(written, again);
  Require(again.size() == groups.size(), "as many groups as were written");
  for (std::size_t i = 0; i < groups.size(); ++i) {
    Require(again[i].unique == groups[i].unique && again[i].ids == groups[i].ids &&
                again[i].has_cap == groups[i].has_cap,
            "each group reads back");
  }
  (void)kalo::equal::ParseGroups(text);
  return 0;
}
