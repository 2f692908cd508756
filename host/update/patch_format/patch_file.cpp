#include "host/update/patch_format/patch_file.h"

#include "host/update/patch_format/patch_walk.h"
#include "host/update/patch_format/payload_folder.h"

namespace kalo::patch {
namespace {

class NoSink : public PatchSink {
 public:
  void OnManifest(const Manifest& /*manifest*/, const std::string& /*text*/) override {}
  void OnMember(const ListedMember& /*member*/) override {}
  void OnData(const ListedMember& /*member*/, std::span<const char> /*bytes*/) override {}
  void OnMemberEnd(const ListedMember& /*member*/) override {}
};

class ExtractingSink : public PatchSink {
 public:
  ExtractingSink(PayloadFolder& folder, const PatchProgress& progress)
      : folder_(folder), progress_(progress) {}

  void OnManifest(const Manifest& manifest, const std::string& /*text*/) override {
    total_ = manifest.TotalBytes();
    Report();
  }

  void OnMember(const ListedMember& member) override {
    if (member.IsPayload()) folder_.Begin(member.name.substr(kPayloadPrefix.size()));
  }

  void OnData(const ListedMember& member, std::span<const char> bytes) override {
    if (member.IsPayload()) folder_.Write(bytes);
    done_ += bytes.size();
    Report();
  }

  void OnMemberEnd(const ListedMember& member) override {
    if (member.IsPayload()) folder_.End(member.mode);
  }

 private:
  void Report() const {
    if (progress_) progress_(done_, total_);
  }

  PayloadFolder& folder_;
  const PatchProgress& progress_;
  std::uint64_t done_ = 0;
  std::uint64_t total_ = 0;
};

}  // namespace

VerifyResult VerifyPatch(const std::string& path, const KeyRing& keys, FileTrust trust) {
  VerifyResult failed;
  try {
    NoSink sink;
    return WalkPatch(path, &keys, trust, sink);
  } catch (const PatchError& e) {
    failed.outcome = e.Outcome();
    failed.reason = e.what();
    failed.error_number = e.ErrorNumber();
  } catch (const std::exception& e) {
    // Not one that speaks of the file: there was no memory, or no hash.
    failed.outcome = VerifyOutcome::kCannotRead;
    failed.reason = e.what();
    failed.error_number = ENOMEM;
  }
  return failed;
}

VerifyResult ExtractPayload(const std::string& path, const KeyRing& keys,
                            const std::string& target_folder, const PatchProgress& progress,
                            FileTrust trust) {
  PayloadFolder folder(target_folder);
  ExtractingSink sink(folder, progress);
  VerifyResult result = WalkPatch(path, &keys, trust, sink);
  folder.Sync();
  return result;
}

}  // namespace kalo::patch
