#include "host/update/patch_format/patch_listing.h"

#include "host/update/patch_format/patch_walk.h"

namespace kalo::patch {
namespace {

class ListingSink : public PatchSink {
 public:
  explicit ListingSink(Manifest& manifest) : manifest_(manifest) {}

  void OnManifest(const Manifest& manifest, const std::string& /*text*/) override {
    manifest_ = manifest;
  }
  void OnMember(const ListedMember& /*member*/) override {}
  void OnData(const ListedMember& /*member*/, std::span<const char> /*bytes*/) override {}
  void OnMemberEnd(const ListedMember& /*member*/) override {}

 private:
  Manifest& manifest_;
};

}  // namespace

PatchListing ListPatch(const std::string& path) {
  PatchListing listing;
  ListingSink sink(listing.manifest);
  listing.result = WalkPatch(path, nullptr, FileTrust::kAnyOwner, sink);
  return listing;
}

}  // namespace kalo::patch
