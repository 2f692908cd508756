#include "host/update/patch_format/manifest.h"

#include <json/value.h>

#include <algorithm>
#include <optional>

#include "host/core/strict_json.h"
#include "host/update/patch_format/patch_error.h"
#include "host/update/patch_format/sha256.h"

namespace kalo::patch {
namespace {

constexpr int kFormat = 1;
// What ustar can hold in one header.
constexpr std::size_t kLongestName = 255;
constexpr std::uint64_t kLargestMember = 8ULL * 1024 * 1024 * 1024 - 1;
constexpr const char* kFileModeText = "0644";
constexpr const char* kProgramModeText = "0755";

[[noreturn]] void Fail(const std::string& reason) {
  throw PatchError(VerifyOutcome::kBadManifest, "manifest.json: " + reason);
}

bool IsPlainByte(char c) {
  return c >= ' ' && c <= '~' && c != '\\';
}

bool IsSafeName(std::string_view name) {
  if (name.empty() || name.size() > kLongestName) return false;
  if (!std::all_of(name.begin(), name.end(), IsPlainByte)) return false;
  while (true) {
    const std::size_t slash = name.find('/');
    const std::string_view part = name.substr(0, slash);
    if (part.empty() || part == "." || part == "..") return false;
    if (slash == std::string_view::npos) return true;
    name.remove_prefix(slash + 1);
  }
}

// The place of a member in the order; empty for a name that has no place.
std::optional<int> RankOf(std::string_view name) {
  if (name == kVersionName) return 0;
  if (name == kUpdaterName) return 1;
  if (name.starts_with(kTextsPrefix)) return 2;
  if (name.starts_with(kPayloadPrefix)) return 3;
  return std::nullopt;
}

ListedMember ReadMember(const Json::Value& entry) {
  if (!entry.isObject() || entry.size() != 4 || !entry["name"].isString() ||
      !entry["size"].isUInt64() || !entry["sha256"].isString() || !entry["mode"].isString()) {
    Fail("a member is not {name, size, sha256, mode}");
  }
  ListedMember member;
  member.name = entry["name"].asString();
  member.size = entry["size"].asUInt64();
  member.sha256 = entry["sha256"].asString();
  const std::string mode = entry["mode"].asString();
  if (mode != kFileModeText && mode != kProgramModeText) Fail(member.name + ": foreign mode");
  member.mode = mode == kFileModeText ? kFileMode : kProgramMode;
  return member;
}

void CheckMember(const ListedMember& member) {
  if (!IsSafeName(member.name)) Fail("a name is not a plain relative path");
  if (!RankOf(member.name)) Fail(member.name + ": has no place in a patch");
  if (member.size > kLargestMember) Fail(member.name + ": too large");
  if (!IsDigest(member.sha256)) Fail(member.name + ": no SHA-256");
}

void CheckOrder(const Manifest& manifest) {
  int rank = 0;
  for (const ListedMember& member : manifest.members) {
    const int next = RankOf(member.name).value_or(0);
    if (next < rank) Fail(member.name + ": in the wrong place");
    rank = next;
  }
  const auto& members = manifest.members;
  if (members.size() < 3 || members[0].name != kVersionName || members[1].name != kUpdaterName ||
      !members.back().IsPayload()) {
    Fail("VERSION, updater or the payload is missing");
  }
  if (members[0].size > kLargestVersion) Fail("VERSION: too large");
}

void CheckUnique(const Manifest& manifest) {
  const auto folders = manifest.Folders();
  std::set<std::string_view> names;
  for (const ListedMember& member : manifest.members) {
    if (!names.insert(member.name).second) Fail(member.name + ": listed twice");
    if (folders.contains(member.name)) Fail(member.name + ": both a file and a folder");
  }
}

void Check(const Manifest& manifest) {
  if (manifest.members.size() > kMostMembers) Fail("too many members");
  for (const ListedMember& member : manifest.members) CheckMember(member);
  CheckOrder(manifest);
  CheckUnique(manifest);
}

}  // namespace

std::uint64_t Manifest::TotalBytes() const {
  std::uint64_t total = 0;
  for (const ListedMember& member : members) total += member.size;
  return total;
}

std::set<std::string, std::less<>> Manifest::Folders() const {
  FolderOrder order;
  std::set<std::string, std::less<>> folders;
  for (const ListedMember& member : members) {
    for (std::string& folder : order.NewFor(member.name)) folders.insert(std::move(folder));
  }
  return folders;
}

std::vector<std::string> FolderOrder::NewFor(std::string_view file) {
  std::vector<std::string> folders;
  for (std::size_t slash = file.find('/'); slash != std::string_view::npos;
       slash = file.find('/', slash + 1)) {
    const auto [folder, is_new] = seen_.emplace(file.substr(0, slash));
    if (is_new) folders.push_back(*folder);
  }
  return folders;
}

Manifest ParseManifest(std::string_view text) {
  const std::optional<Json::Value> root = ParseStrictJson(text);
  if (!root || !root->isObject()) Fail("not one JSON object");
  if (root->size() != 2 || !(*root)["format"].isInt() || !(*root)["members"].isArray()) {
    Fail("not {format, members}");
  }
  if ((*root)["format"].asInt() != kFormat) Fail("a format that this program does not know");
  Manifest manifest;
  for (const Json::Value& entry : (*root)["members"]) {
    if (manifest.members.size() == kMostMembers) Fail("too many members");
    manifest.members.push_back(ReadMember(entry));
  }
  Check(manifest);
  return manifest;
}

std::string WriteManifest(const Manifest& manifest) {
  Check(manifest);
  Json::Value root(Json::objectValue);
  root["format"] = kFormat;
  root["members"] = Json::Value(Json::arrayValue);
  for (const ListedMember& member : manifest.members) {
    Json::Value entry(Json::objectValue);
    entry["name"] = member.name;
    entry["size"] = Json::UInt64(member.size);
    entry["sha256"] = member.sha256;
    entry["mode"] = member.mode == kFileMode ? kFileModeText : kProgramModeText;
    root["members"].append(entry);
  }
  std::string text = WriteJson(root);
  if (text.size() > kLargestManifest) Fail("more files than one patch can list");
  return text;
}

}  // namespace kalo::patch
