#include "host/update/feed/release_list.h"

#include <json/value.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <tuple>

#include "host/core/object_reader.h"
#include "host/update/patch_format/description.h"
#include "host/update/patch_format/sha256.h"
#include "host/update/patch_format/version_text.h"

namespace kalo::feed {
namespace {

constexpr int kFormat = 1;
constexpr int kHighestNumber = std::numeric_limits<std::int32_t>::max();
constexpr std::size_t kMostReleases = 10000;

bool IsAscending(std::string_view groups) {
  return std::adjacent_find(groups.begin(), groups.end(), std::greater_equal<>()) == groups.end();
}

// What the client puts behind the feed's address, so nothing that could lead elsewhere.
bool IsPlainPath(std::string_view path) {
  constexpr std::string_view kBytes =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.+-/";
  return !path.empty() && !path.starts_with('/') && path.find("..") == std::string_view::npos &&
         path.find_first_not_of(kBytes) == std::string_view::npos;
}

ListedFile ReadFileMember(const Json::Value& value, const std::string& name) {
  ObjectReader reader(value, name);
  ListedFile file;
  file.path = reader.Text("path");
  file.size = static_cast<std::uint64_t>(
      reader.LargeInteger("size", 1, std::numeric_limits<std::int64_t>::max()));
  file.sha256 = reader.Text("sha256");
  if (!IsPlainPath(file.path)) reader.Fail("path", "is no plain relative path");
  if (!patch::IsDigest(file.sha256)) reader.Fail("sha256", "is no SHA-256");
  return file;
}

std::map<std::string, std::string> ReadNotes(ObjectReader& reader) {
  std::map<std::string, std::string> notes;
  const Json::Value& object = reader.Object("notes");
  for (const std::string& language : object.getMemberNames()) {
    const Json::Value& text = object[language];
    if (!text.isString() || text.asString().size() > kLongestNotes) {
      reader.Fail("notes", "must hold texts of at most 8191 bytes");
    }
    notes.emplace(language, text.asString());
  }
  return notes;
}

Release ReadRelease(const Json::Value& value, const std::string& name) {
  ObjectReader reader(value, name);
  Release release;
  release.version = reader.Text("version");
  release.phase = reader.Text("phase", "");
  release.groups = reader.Text("groups");
  const auto numbers = patch::ParseVersionText(release.version);
  if (!numbers || !patch::IsDisplayForm(release.version)) {
    reader.Fail("version", "is no version in display form");
  }
  release.build = numbers->build;
  release.nano = numbers->nano;
  if (!release.phase.empty() && release.phase != kBeta) reader.Fail("phase", "is not known");
  if (release.groups.find_first_not_of(kAllGroups) != std::string::npos ||
      !IsAscending(release.groups)) {
    reader.Fail("groups", "must be ascending digits");
  }
  release.share = reader.Integer("share", 1, kWholeShare, kWholeShare);
  release.file = ReadFileMember(reader.Object("file"), name + ": file");
  release.notes = ReadNotes(reader);
  return release;
}

std::vector<std::int32_t> ReadBuilds(ObjectReader& reader, const std::string& key) {
  std::vector<std::int32_t> builds;
  for (const Json::Value& value : reader.Array(key)) {
    if (!value.isInt() || value.asInt() < 0) reader.Fail(key, "must hold build numbers");
    builds.push_back(value.asInt());
  }
  return builds;
}

std::tuple<std::int32_t, bool, std::int32_t> Rank(const Release& release) {
  return {release.build, release.IsSmall(), release.nano};
}

bool IsBefore(const Release& a, const Release& b) {
  return Rank(a) < Rank(b);
}

Json::Value WriteRelease(const Release& release) {
  Json::Value value(Json::objectValue);
  value["version"] = release.version;
  value["phase"] = release.phase;
  value["groups"] = release.groups;
  if (release.share != kWholeShare) value["share"] = release.share;
  value["file"]["path"] = release.file.path;
  value["file"]["size"] = static_cast<Json::UInt64>(release.file.size);
  value["file"]["sha256"] = release.file.sha256;
  for (const auto& [language, text] : release.notes) value["notes"][language] = text;
  return value;
}

Json::Value WriteBuilds(const std::vector<std::int32_t>& builds) {
  Json::Value value(Json::arrayValue);
  for (const std::int32_t build : builds) value.append(build);
  return value;
}

}  // namespace

bool Release::IsSmall() const {
  return patch::IsSmallUpdate(version);
}

bool Release::IsForAll() const {
  return phase.empty() && groups == kAllGroups && share == kWholeShare;
}

ReleaseList ParseReleaseList(const std::string& text, const std::string& name) {
  const Json::Value root = ParseJsonText(text, name);
  ObjectReader reader(root, name);
  (void)reader.Integer("format", kFormat, kFormat);
  ReleaseList list;
  list.unique = reader.Text("unique");
  if (!patch::IsModelName(list.unique)) reader.Fail("unique", "is no model's name");
  list.number = reader.Integer("number", 1, kHighestNumber);
  list.expires = reader.LargeInteger("expires", 0, std::numeric_limits<std::int64_t>::max());
  const Json::Value& releases = reader.Array("releases");
  if (releases.size() > kMostReleases) reader.Fail("releases", "is too long");
  for (const Json::Value& release : releases) {
    list.releases.push_back(ReadRelease(release, name + ": release"));
  }
  list.stones = ReadBuilds(reader, "stones");
  list.field_builds = ReadBuilds(reader, "field_builds");
  SortReleaseList(list);
  const auto twice =
      std::adjacent_find(list.releases.begin(), list.releases.end(),
                         [](const Release& a, const Release& b) { return Rank(a) == Rank(b); });
  if (twice != list.releases.end()) reader.Fail("releases", "has a version twice");
  return list;
}

std::string WriteReleaseList(const ReleaseList& list) {
  Json::Value root(Json::objectValue);
  root["format"] = kFormat;
  root["unique"] = list.unique;
  root["number"] = list.number;
  root["expires"] = static_cast<Json::Int64>(list.expires);
  root["releases"] = Json::Value(Json::arrayValue);
  for (const Release& release : list.releases) root["releases"].append(WriteRelease(release));
  root["stones"] = WriteBuilds(list.stones);
  root["field_builds"] = WriteBuilds(list.field_builds);
  return root.toStyledString();
}

bool NamesSmallUpdate(const std::string& version) {
  const auto numbers = patch::ParseVersionText(version);
  return patch::IsSmallUpdate(version) || (numbers && numbers->nano > 0);
}

const Release* FindRelease(const ReleaseList& list, const std::string& version) {
  const auto numbers = patch::ParseVersionText(version);
  if (!numbers) return nullptr;
  const bool small = NamesSmallUpdate(version);
  const auto found =
      std::find_if(list.releases.begin(), list.releases.end(), [&](const Release& release) {
        return release.build == numbers->build && release.nano == numbers->nano &&
               release.IsSmall() == small;
      });
  return found != list.releases.end() ? &*found : nullptr;
}

std::optional<std::string> PureVersion(const std::string& version) {
  const auto numbers = patch::ParseVersionText(version);
  if (!numbers) return std::nullopt;
  const std::string build = std::to_string(numbers->build);
  return NamesSmallUpdate(version) ? build + "-" + std::to_string(numbers->nano) : build;
}

void SortReleaseList(ReleaseList& list) {
  std::sort(list.releases.begin(), list.releases.end(), IsBefore);
  for (std::vector<std::int32_t>* builds : {&list.stones, &list.field_builds}) {
    std::sort(builds->begin(), builds->end());
    builds->erase(std::unique(builds->begin(), builds->end()), builds->end());
  }
}

}  // namespace kalo::feed
