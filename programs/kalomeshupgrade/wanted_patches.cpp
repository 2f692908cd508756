#include "programs/kalomeshupgrade/wanted_patches.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "host/update/patch_format/version_text.h"
#include "platform/core/key_value.h"
#include "platform/paths.h"
#include "platform/update/group_update.h"

namespace kalo::equal {
namespace {

constexpr std::size_t kValueSize = 8192;

std::string ReadKey(const char* key) {
  std::array<char, kValueSize> value{};
  const int length =
      KLIBCFileGetKeyValue(KALO::paths::kPatchInformation, key, value.data(), value.size(), 0);
  return length > 0 ? value.data() : "";
}

// What the record's keys have in common for one kind of patch.
struct Keys {
  const char* available;
  const char* version;
  const char* groups;
};

constexpr Keys kFull = {"avaliable_full", "patch_full", "uniques_full"};
constexpr Keys kSmall = {"avaliable_nano", "patch_nano", "uniques_nano"};

void Add(std::vector<WantedPatch>& patches, const Keys& keys, const char* store) {
  if (ReadKey(keys.available) != "true") return;
  WantedPatch patch;
  patch.version = ReadKey(keys.version);
  patch.store = store;
  patch.groups = InOrder(ParseGroups(ReadKey(keys.groups)));
  patches.push_back(std::move(patch));
}

}  // namespace

bool ModelGroup::HasCap() const {
  return std::find(ids.begin(), ids.end(), 0) != ids.end();
}

std::vector<ModelGroup> ParseGroups(const std::string& text) {
  std::vector<ModelGroup> groups;
  for (std::size_t begin = 0; (begin = text.find_first_not_of(';', begin)) != std::string::npos;) {
    const std::size_t end = text.find(';', begin);
    if (end == std::string::npos) break;
    std::istringstream words(text.substr(begin, end - begin));
    begin = end;
    ModelGroup& group = groups.emplace_back();
    words >> group.unique;
    for (std::int32_t id = 0; words >> id;) {
      // A node whose way passes the version twice stands there twice.
      if (std::find(group.ids.begin(), group.ids.end(), id) == group.ids.end()) {
        group.ids.push_back(id);
      }
    }
  }
  return groups;
}

std::vector<ModelGroup> InOrder(const std::vector<ModelGroup>& groups) {
  std::vector<ModelGroup> ordered;
  const ModelGroup* cap = nullptr;
  for (const ModelGroup& group : groups) {
    if (group.HasCap()) {
      cap = &group;
    } else if (!group.ids.empty()) {
      ordered.push_back(group);
    }
  }
  if (cap != nullptr) ordered.push_back(*cap);
  return ordered;
}

std::vector<WantedPatch> ReadWantedPatches() {
  std::vector<WantedPatch> patches;
  Add(patches, kFull, KALO::paths::kFullStore);
  const std::string full = patches.empty() ? "" : patches.front().version;
  Add(patches, kSmall, KALO::paths::kNanoStore);
  if (patches.size() == 2) {
    const KALO::MESH::SDK::Upgrade::GroupUpdate versions;
    (void)versions.ConvertVersion(full, patches.back().base);
  }
  return patches;
}

void CheckTargets(const std::vector<WantedPatch>& patches,
                  const std::vector<KALO::MESH::SDK::Upgrade::UpdateNode>& nodes) {
  patch::VersionNumbers highest;
  for (const auto& node : nodes) {
    highest = std::max(highest, {node.GetBuildNum(), node.GetNanoNum()});
  }
  for (const WantedPatch& wanted : patches) {
    const auto target = patch::ParseVersionText(wanted.version);
    if (target && *target <= highest) continue;
    throw EqualUpdateError(wanted.version +
                           " is not a version up to the highest one that runs in the mesh; run the "
                           "check for equal versions first");
  }
}

}  // namespace kalo::equal
