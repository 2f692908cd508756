#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/core/file_io.h"
#include "host/core/strict_json.h"
#include "host/update/patch_format/description.h"
#include "host/update/patch_format/patch_file.h"
#include "programs/kalo-patch/commands.h"
#include "programs/kalo-patch/feed_tree.h"
#include "programs/kalo-patch/file_hash.h"

namespace kalo::patch_tool {
namespace fs = std::filesystem;
namespace {

constexpr std::int64_t kDay = 86400;
constexpr std::int32_t kFirstWithoutSmallUpdates = 76000;

struct Options {
  std::vector<std::string> patches;
  std::string feed;
  std::string key_file;
  std::string groups = "0-9";
  double share = 100;
  std::string phase;
  std::vector<std::string> notes;
  std::vector<std::string> models;
  std::vector<std::int32_t> field_builds;
  bool stone = false;
  int valid_days = 180;
};

// "0-4,7" becomes "012347".
std::string ParseGroups(const std::string& text) {
  std::array<bool, 10> reached{};
  const auto fail = [&] {
    throw UsageError("--groups " + text + " is no list of digits; write it like 0-4 or 0,3,7-9");
  };
  if (text.empty()) fail();
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool range = i + 2 < text.size() && text[i + 1] == '-';
    const char first = text[i];
    const char last = range ? text[i + 2] : first;
    if (first < '0' || last > '9' || first > last) fail();
    for (char digit = first; digit <= last; ++digit) {
      reached.at(static_cast<std::size_t>(digit - '0')) = true;
    }
    i += range ? 3 : 1;
    if (i < text.size() && text[i] != ',') fail();
    if (i + 1 == text.size()) fail();  // ends in a comma
  }
  std::string groups;
  for (const char digit : feed::kAllGroups) {
    if (reached.at(static_cast<std::size_t>(digit - '0'))) groups += digit;
  }
  return groups;
}

// Which routers a release reaches.
struct Rollout {
  std::string groups;
  std::int32_t share = feed::kWholeShare;
};

// A share names the groups itself: those that it covers, the last one in part.
Rollout ReadRollout(const Options& options) {
  constexpr int kPerPercent = feed::kWholeShare / 100;
  constexpr auto kGroupSize =
      feed::kWholeShare / static_cast<std::int32_t>(feed::kAllGroups.size());
  const auto share = static_cast<std::int32_t>(std::lround(options.share * kPerPercent));
  if (share == feed::kWholeShare) return {ParseGroups(options.groups)};
  const auto groups = static_cast<std::size_t>((share + kGroupSize - 1) / kGroupSize);
  return {std::string(feed::kAllGroups.substr(0, groups)), share};
}

/// A patch that is to be published.
struct NewRelease {
  fs::path from;
  std::string unique;
  feed::Release release;
};

// "ger=notes.de.txt" becomes that language's text.
std::map<std::string, std::string> ReadNotes(const std::vector<std::string>& options) {
  std::map<std::string, std::string> notes;
  for (const std::string& option : options) {
    const std::size_t equals = option.find('=');
    if (equals == 0 || equals == std::string::npos) {
      throw UsageError("--notes " + option + " is no LANGUAGE=FILE, like enu=notes.txt");
    }
    const std::string path = option.substr(equals + 1);
    const auto text = ReadFile(path, feed::kLongestNotes);
    if (!text) throw std::runtime_error(path + ": " + std::strerror(errno));
    if (!IsUtf8(*text)) throw std::runtime_error(path + ": is no UTF-8 text");
    notes.insert_or_assign(option.substr(0, equals), *text);
  }
  return notes;
}

NewRelease Describe(const std::string& path, const patch::KeyRing& keys, const Rollout& rollout,
                    const std::string& phase) {
  const patch::VerifyResult result = patch::VerifyPatch(path, keys, patch::FileTrust::kAnyOwner);
  if (!result.IsValid()) throw patch::PatchError(result.outcome, path + ": " + result.reason);
  NewRelease entry{path, result.description.unique, {}};
  feed::Release& release = entry.release;
  release.version = result.description.version;
  release.build = result.description.build;
  release.nano = result.description.nano;
  release.phase = phase;
  release.groups = rollout.groups;
  release.share = rollout.share;
  release.file.size = fs::file_size(path);
  release.file.sha256 = HashOf(path);
  const std::string number = release.IsSmall() ? "-" + std::to_string(release.nano) : "";
  release.file.path =
      "patches/" + entry.unique + "/" + std::to_string(release.build) + number + ".patch";
  return entry;
}

void Take(feed::ReleaseList& list, const NewRelease& entry) {
  const auto same =
      std::find_if(list.releases.begin(), list.releases.end(),
                   [&](const feed::Release& r) { return r.file.path == entry.release.file.path; });
  if (same == list.releases.end()) {
    list.releases.push_back(entry.release);
    return;
  }
  if (same->version != entry.release.version || same->file.sha256 != entry.release.file.sha256) {
    throw std::runtime_error(
        entry.from.native() + ": " + same->version +
        " is published already with other contents; give it a new build number");
  }
  const auto notes = std::move(same->notes);
  *same = entry.release;  // other groups, another phase
  if (same->notes.empty()) same->notes = notes;
}

// Routers always take a small update along with a full one below this build.
void CheckSmallUpdates(const feed::ReleaseList& list) {
  for (const feed::Release& full : list.releases) {
    if (full.IsSmall() || full.build >= kFirstWithoutSmallUpdates) continue;
    const bool has_small =
        std::any_of(list.releases.begin(), list.releases.end(),
                    [&](const feed::Release& r) { return r.IsSmall() && r.build == full.build; });
    if (has_small) continue;
    throw std::runtime_error(full.version + " for " + list.unique +
                             " needs a small update beside it: make one with --version \"" +
                             full.version + " Update 0\" and publish both at once");
  }
}

/// The lists that one publication changes, by model.
using Lists = std::map<std::string, feed::ReleaseList>;

feed::ReleaseList& Open(Lists& lists, const FeedTree& tree, const patch::KeyRing& keys,
                        const std::string& unique) {
  const auto known = lists.find(unique);
  if (known != lists.end()) return known->second;
  feed::ReleaseList list = tree.ReadList(unique, keys).value_or(feed::ReleaseList{});
  list.unique = unique;
  return lists[unique] = std::move(list);
}

// A mistyped model would get a list of its own, and the one that was meant would expire.
void CheckModel(const FeedTree& tree, const patch::KeyRing& keys, const std::string& unique,
                const std::vector<NewRelease>& entries) {
  if (!patch::IsModelName(unique)) throw UsageError("--unique " + unique + " is no model's name");
  const bool has_patch = std::any_of(entries.begin(), entries.end(), [&](const NewRelease& entry) {
    return entry.unique == unique;
  });
  if (has_patch || tree.ReadList(unique, keys)) return;
  throw std::runtime_error("nothing is published for " + unique);
}

void Run(const Options& options) {
  if (options.patches.empty() && options.models.empty()) {
    throw UsageError("name patch files, or models whose lists are to be signed anew (--unique)");
  }
  const Rollout rollout = ReadRollout(options);
  const auto notes = ReadNotes(options.notes);
  const patch::SigningKey key = patch::SigningKey::Load(options.key_file);
  patch::KeyRing keys;
  keys.AddPem(key.PublicPem(), options.key_file);
  std::vector<NewRelease> entries;
  for (const std::string& path : options.patches) {
    entries.push_back(Describe(path, keys, rollout, options.phase));
    entries.back().release.notes = notes;
  }
  const FeedTree tree(options.feed);
  Lists lists;
  for (const std::string& unique : options.models) CheckModel(tree, keys, unique, entries);
  for (const std::string& unique : options.models) (void)Open(lists, tree, keys, unique);
  for (const NewRelease& entry : entries) {
    feed::ReleaseList& list = Open(lists, tree, keys, entry.unique);
    Take(list, entry);
    if (options.stone && !entry.release.IsSmall()) list.stones.push_back(entry.release.build);
  }
  for (auto& [unique, list] : lists) {
    list.field_builds.insert(list.field_builds.end(), options.field_builds.begin(),
                             options.field_builds.end());
    ++list.number;
    list.expires = static_cast<std::int64_t>(std::time(nullptr)) + options.valid_days * kDay;
    feed::SortReleaseList(list);
    CheckSmallUpdates(list);
  }
  for (const NewRelease& entry : entries) tree.PutPatch(entry.from, entry.release.file);
  for (const auto& [unique, list] : lists) tree.PutList(list, key);
}

}  // namespace

void AddPublish(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("publish", "Publish patches in an update feed's folder");
  command->add_option("PATCH", options->patches, "signed patch files, of any models");
  command->add_option("--feed", options->feed, "the folder that a web server serves")->required();
  command->add_option("--key", options->key_file, "the private key that signed the patches")
      ->required();
  CLI::Option* groups =
      command->add_option("--groups", options->groups, "rollout groups reached, like 0-4")
          ->capture_default_str();
  command->add_option("--share", options->share, "percentage of all routers reached, like 2.5")
      ->check(CLI::Range(0.01, 100.0))
      ->excludes(groups);
  command->add_option("--phase", options->phase, "Beta, or nothing for a finished release")
      ->check(CLI::IsMember({"Beta"}));
  command
      ->add_option("--notes", options->notes,
                   "what is new, for owners: LANGUAGE=FILE, like enu=notes.txt")
      ->allow_extra_args(false);
  command->add_flag("--stone", options->stone,
                    "every update from below must stop at these full releases");
  command
      ->add_option("--field-build", options->field_builds,
                   "a build that routers run without it being published here")
      ->check(CLI::NonNegativeNumber)
      ->allow_extra_args(false);
  command->add_option("--unique", options->models, "sign this model's list anew")
      ->allow_extra_args(false);
  command->add_option("--valid-days", options->valid_days, "how long the list counts")
      ->check(CLI::Range(1, 3650))
      ->capture_default_str();
  command->callback([options] { Run(*options); });
}

}  // namespace kalo::patch_tool
