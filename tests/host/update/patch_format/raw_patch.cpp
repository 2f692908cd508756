#include "tests/host/update/patch_format/raw_patch.h"

#include <algorithm>
#include <stdexcept>

#include "host/update/patch_format/sha256.h"
#include "tests/support/tar_header.h"

namespace kalo::test {
namespace {

std::string Header(const RawMember& member) {
  return TarHeader({.name = member.name,
                    .prefix = "",
                    .link = member.link,
                    .owner = member.owner,
                    .magic = member.magic,
                    .type = member.type,
                    .mode = member.mode,
                    .uid = member.uid,
                    .gid = member.gid,
                    .size = member.claimed_size.value_or(member.data.size())});
}

std::string Digest(const std::string& data) {
  patch::Sha256 hash;
  hash.Update(data);
  return hash.Finish();
}

}  // namespace

std::string TarBytes(const std::vector<RawMember>& members) {
  std::string bytes;
  for (const RawMember& member : members) {
    bytes += Header(member) + member.data;
    bytes.resize(WholeTarBlocks(bytes.size()), '\0');
  }
  return bytes + std::string(2 * kTarBlock, '\0');
}

std::string RawPatch::RightManifest() const {
  std::string list;
  for (const RawMember& member : members) {
    if (member.type != '0') continue;
    if (!list.empty()) list += ",";
    list += R"({"name":")" + member.name + R"(","size":)" + std::to_string(member.data.size()) +
            R"(,"sha256":")" + Digest(member.data) + R"(","mode":")" + Octal(member.mode, 4) +
            R"("})";
  }
  return R"({"format":1,"members":[)" + list + "]}";
}

std::string RawPatch::Bytes(const patch::SigningKey& key) const {
  const std::string text = manifest.value_or(RightManifest());
  std::vector<RawMember> all;
  all.push_back({.name = "manifest.json", .data = text});
  all.push_back({.name = "manifest.sig", .data = key.Sign(text)});
  all.insert(all.end(), members.begin(), members.end());
  return TarBytes(all);
}

RawMember& RawPatch::Member(const std::string& name) {
  const auto member = std::find_if(members.begin(), members.end(),
                                   [&](const RawMember& m) { return m.name == name; });
  if (member == members.end()) throw std::out_of_range(name);
  return *member;
}

RawPatch GoodPatch() {
  RawPatch patch;
  patch.members = {
      {.name = "VERSION",
       .data = "unique=\"kalo_cap1\"\nversion=\"VXM 1.4.0-76010 Update 3\"\nbuild=\"76010\"\n"
               "nano=\"3\"\n"},
      {.name = "updater", .data = "update", .mode = 0755},
      {.name = "texts/", .data = "", .mode = 0755, .type = '5'},
      {.name = "texts/en.txt", .data = "New: everything"},
      {.name = "payload/", .data = "", .mode = 0755, .type = '5'},
      {.name = "payload/bin/", .data = "", .mode = 0755, .type = '5'},
      {.name = "payload/bin/tool", .data = std::string(600, 'x'), .mode = 0755},
      {.name = "payload/readme", .data = "read me"},
  };
  return patch;
}

Maker::Maker() : key(patch::SigningKey::Generate()) {
  const TemporaryFolder folder;
  ring.AddFile(folder.Write("public.pem", key.PublicPem()));
}

}  // namespace kalo::test
