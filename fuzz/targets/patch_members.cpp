// A patch whose every member is described by a line of the input: the checksums, the manifest and
// its signature are right, so that nothing but the rules for members is in its way.

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>

#include "fuzz/described_tar.h"
#include "fuzz/fuzz_target.h"
#include "host/core/strict_json.h"
#include "host/update/patch_format/manifest.h"
#include "host/update/patch_format/patch_file.h"
#include "host/update/patch_format/patch_listing.h"
#include "host/update/patch_format/sha256.h"
#include "host/update/patch_format/signing_key.h"

namespace kalo::fuzz {
namespace {

namespace fs = std::filesystem;
using Members = std::vector<DescribedMember>;

// In the private root's own memory: what is extracted is waited for until it is on the disk.
constexpr const char* kOutside = "/fuzz-extracted";
constexpr const char* kTarget = "/fuzz-extracted/target";
constexpr const char* kVersion =
    "unique=\"kalo_cap1\"\nversion=\"VXM 1.4.0-76010 Update 3\"\nbuild=\"76010\"\nnano=\"3\"\n";

bool IsPayload(const DescribedMember& member) {
  return member.is_listed && member.ListedName().starts_with(patch::kPayloadPrefix);
}

// A maker's key with the ring that knows it.
struct Maker {
  Maker() : key(patch::SigningKey::Generate()) { ring.AddPem(key.PublicPem(), "the maker's key"); }
  patch::SigningKey key;
  patch::KeyRing ring;
};

const Maker& TheMaker() {
  static const Maker maker;
  return maker;
}

std::string Digest(std::string_view text) {
  patch::Sha256 hash;
  hash.Update(text);
  return hash.Finish();
}

// Lists the members as they are, also those whose names no manifest may have.
std::string ManifestOf(const Members& members) {
  Json::Value root(Json::objectValue);
  root["format"] = 1;
  root["members"] = Json::Value(Json::arrayValue);
  std::set<std::string> names;
  for (const DescribedMember& member : members) {
    if (!member.is_listed || !names.insert(member.ListedName()).second) continue;
    Json::Value entry(Json::objectValue);
    entry["name"] = member.ListedName();
    entry["size"] = Json::UInt64(member.ClaimedSize());
    entry["sha256"] = Digest(member.data.value_or("").substr(0, member.ClaimedSize()));
    entry["mode"] = member.Permissions() == patch::kProgramMode ? "0755" : "0644";
    root["members"].append(entry);
  }
  return WriteJson(root);
}

void FillIn(Members& members) {
  for (DescribedMember& member : members) {
    if (!member.data && member.name == patch::kVersionName) member.data = kVersion;
  }
  const std::string manifest = ManifestOf(members);
  for (DescribedMember& member : members) {
    if (member.data) continue;
    if (member.name == patch::kManifestName) member.data = manifest;
    if (member.name == patch::kSignatureName) member.data = TheMaker().key.Sign(manifest);
  }
}

bool IsAllowed(std::string name) {
  if (name.ends_with('/')) name.pop_back();
  const fs::path path(name);
  if (path.empty() || path.is_absolute() || path.lexically_normal() != path) return false;
  if (std::find(path.begin(), path.end(), "..") != path.end()) return false;
  return name == patch::kVersionName || name == patch::kUpdaterName || *path.begin() == "texts" ||
         *path.begin() == "payload";
}

void CheckAccepted(const Members& members, const patch::VerifyResult& result) {
  Require(members.size() > 2 && members[0].FullName() == patch::kManifestName &&
              members[1].FullName() == patch::kSignatureName,
          "manifest and signature come first");
  std::set<std::string> names;
  std::uint32_t payload_files = 0;
  for (const DescribedMember& member : members) {
    const std::string name = member.FullName();
    Require(member.IsPlain(), "a valid patch has plain files and folders only");
    Require(names.insert(name).second, "no name stands twice");
    const unsigned mode = member.Permissions();
    Require(mode == patch::kFileMode || mode == patch::kProgramMode, "known modes");
    if (names.size() > 2) Require(IsAllowed(name), "a member has a place in a patch");
    if (IsPayload(member)) ++payload_files;
  }
  Require(result.is_signed && result.payload_files == payload_files, "all is counted");
  Require(patch::ListPatch(kInputFile).result.payload_files == payload_files,
          "what is valid can be listed");
}

std::string Contents(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::set<std::string> FilesBelow(const fs::path& folder) {
  std::set<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    Require(!entry.is_symlink() && (entry.is_directory() || entry.is_regular_file()),
            "nothing but files and folders is made");
    if (entry.is_regular_file()) files.insert(entry.path().lexically_relative(folder));
  }
  return files;
}

void CheckExtracted(const Members& members, bool is_valid) {
  fs::remove_all(kOutside);
  fs::create_directories(kTarget);
  bool succeeded = false;
  try {
    (void)patch::ExtractPayload(kInputFile, TheMaker().ring, kTarget, {},
                                patch::FileTrust::kAnyOwner);
    succeeded = true;
  } catch (const patch::PatchError&) {
    succeeded = false;
  }
  Require(succeeded == is_valid, "what is valid can be extracted, and nothing else");
  const auto outside = fs::directory_iterator(kOutside);
  Require(std::distance(begin(outside), end(outside)) == 1, "nothing is made outside the folder");
  const std::set<std::string> files = FilesBelow(kTarget);
  if (!is_valid) return;
  std::set<std::string> listed;
  for (const DescribedMember& member : members) {
    if (!IsPayload(member)) continue;
    const std::string name = member.ListedName().substr(patch::kPayloadPrefix.size());
    Require(Contents(fs::path(kTarget) / name) == member.data.value_or(""), "a file is as listed");
    listed.insert(name);
  }
  Require(files == listed, "the payload is extracted, and nothing else");
}

}  // namespace
}  // namespace kalo::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo;
  const std::string text = fuzz::TextOf(data, size);
  std::vector<fuzz::DescribedMember> members = fuzz::ReadDescription(text);
  fuzz::FillIn(members);
  fuzz::PutInput(fuzz::kInputFile, fuzz::BuildTar(members).bytes);
  const patch::VerifyResult result =
      patch::VerifyPatch(fuzz::kInputFile, fuzz::TheMaker().ring, patch::FileTrust::kAnyOwner);
  if (result.IsValid()) fuzz::CheckAccepted(members, result);
  fuzz::CheckExtracted(members, result.IsValid());
  return 0;
}
