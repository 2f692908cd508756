#include "programs/kalomeshupgrade/wanted_patches.h"

#include <algorithm>
#include <array>
#include <sstream>

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
  patch.groups = ParseGroups(ReadKey(keys.groups));
  std::stable_partition(patch.groups.begin(), patch.groups.end(),
                        [](const ModelGroup& group) { return !group.HasCap(); });
  patches.push_back(std::move(patch));
}

}  // namespace

bool ModelGroup::HasCap() const {
  return std::find(ids.begin(), ids.end(), 0) != ids.end();
}

std::vector<ModelGroup> ParseGroups(const std::string& text) {
  std::vector<ModelGroup> groups;
  std::istringstream entries(text);
  for (std::string entry; std::getline(entries, entry, ';');) {
    std::istringstream words(entry);
    ModelGroup group;
    if (!(words >> group.unique)) continue;
    for (std::int32_t id = 0; words >> id;) {
      // A node whose way passes the version twice stands there twice.
      if (std::find(group.ids.begin(), group.ids.end(), id) == group.ids.end()) {
        group.ids.push_back(id);
      }
    }
    if (!group.ids.empty()) groups.push_back(std::move(group));
  }
  return groups;
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

}  // namespace kalo::equal
