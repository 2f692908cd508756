#include "tests/host/update/patch_format/raw_patch.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>
#include <sstream>
#include <stdexcept>

#include "host/update/patch_format/sha256.h"

namespace kalo::test {
namespace {

constexpr std::size_t kBlock = 512;

std::string Octal(std::uint64_t number, std::size_t digits) {
  std::ostringstream text;
  text << std::oct << number;
  return std::string(digits - text.str().size(), '0') + text.str();
}

void Put(std::string& header, std::size_t offset, const std::string& field) {
  header.replace(offset, field.size(), field);
}

std::string Header(const RawMember& member) {
  std::string header(kBlock, '\0');
  Put(header, 0, member.name);
  Put(header, 100, Octal(member.mode, 7));
  Put(header, 108, Octal(member.uid, 7));
  Put(header, 116, Octal(member.gid, 7));
  Put(header, 124, Octal(member.claimed_size.value_or(member.data.size()), 11));
  Put(header, 136, Octal(0, 11));
  Put(header, 148, "        ");
  header[156] = member.type;
  Put(header, 157, member.link);
  Put(header, 257, member.magic);
  Put(header, 265, member.owner);
  const auto sum = std::accumulate(header.begin(), header.end(), 0U, [](unsigned total, char c) {
    return total + static_cast<unsigned char>(c);
  });
  Put(header, 148, Octal(sum, 6) + std::string("\0 ", 2));
  return header;
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
    bytes.resize((bytes.size() + kBlock - 1) / kBlock * kBlock, '\0');
  }
  return bytes + std::string(2 * kBlock, '\0');
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
