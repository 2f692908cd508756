#include "host/update/patch_format/patch_head.h"

#include <exception>

#include "host/update/patch_format/description.h"
#include "host/update/patch_format/patch_walk.h"

namespace kalo::patch {
namespace {

// Ends the walk.
class HeadRead : public std::exception {};

class HeadSink : public PatchSink {
 public:
  void OnManifest(const Manifest& /*manifest*/, const std::string& /*text*/) override {}
  void OnMember(const ListedMember& /*member*/) override {}
  void OnData(const ListedMember& member, std::span<const char> bytes) override {
    if (member.name == kVersionName) text.append(bytes.data(), bytes.size());
  }
  void OnMemberEnd(const ListedMember& member) override {
    if (member.name == kVersionName) throw HeadRead();
  }

  std::string text;
};

}  // namespace

PatchDescription ReadSignedHead(const std::string& path, const KeyRing& keys, FileTrust trust) {
  HeadSink sink;
  try {
    return WalkPatch(path, &keys, trust, sink).description;
  } catch (const HeadRead&) {
    return ParseDescription(sink.text);
  }
}

}  // namespace kalo::patch
