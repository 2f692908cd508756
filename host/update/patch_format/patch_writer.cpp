#include "host/update/patch_format/patch_writer.h"

#include <iterator>

#include "host/update/patch_format/atomic_output.h"
#include "host/update/patch_format/description.h"
#include "host/update/patch_format/patch_walk.h"
#include "host/update/patch_format/sha256.h"
#include "host/update/patch_format/source_files.h"
#include "host/update/patch_format/tar_writer.h"

namespace kalo::patch {
namespace {

constexpr mode_t kPatchMode = 0644;

void Append(std::vector<SourceFile>& files, std::vector<SourceFile> more) {
  files.insert(files.end(), std::make_move_iterator(more.begin()),
               std::make_move_iterator(more.end()));
}

// All files but VERSION, which is made here.
std::vector<SourceFile> Scan(const PatchSources& sources) {
  std::vector<SourceFile> files;
  files.push_back(ScanFile(sources.updater_file, kUpdaterName));
  if (!sources.texts_folder.empty()) {
    Append(files, ScanFolder(sources.texts_folder, kTextsPrefix));
  }
  Append(files, ScanFolder(sources.payload_folder, kPayloadPrefix));
  return files;
}

ListedMember ListVersion(const std::string& text) {
  Sha256 hash;
  hash.Update(text);
  return {std::string(kVersionName), text.size(), hash.Finish(), kFileMode};
}

void WriteText(TarWriter& tar, std::string_view name, const std::string& text) {
  tar.BeginFile(std::string(name), text.size(), kFileMode);
  tar.Write(text);
}

void WriteHead(TarWriter& tar, const std::string& manifest, const SigningKey* key) {
  WriteText(tar, kManifestName, manifest);
  if (key != nullptr) WriteText(tar, kSignatureName, key->Sign(manifest));
}

void WriteSource(TarWriter& tar, const SourceFile& source) {
  const ListedMember& member = source.member;
  tar.BeginFile(member.name, member.size, member.mode);
  Sha256 hash;
  std::uint64_t size = 0;
  ReadInPieces(source.path, [&](std::span<const char> bytes) {
    size += bytes.size();
    if (size > member.size) return;
    hash.Update(bytes);
    tar.Write(bytes);
  });
  if (size != member.size || hash.Finish() != member.sha256) {
    throw PatchError(VerifyOutcome::kCannotRead, source.path + ": changed while it was read");
  }
}

// Copies a patch member by member, each one checked on the way.
class SigningSink : public PatchSink {
 public:
  SigningSink(TarWriter& tar, const SigningKey& key) : tar_(tar), key_(key) {}

  void OnManifest(const Manifest& /*manifest*/, const std::string& text) override {
    WriteHead(tar_, text, &key_);
  }
  void OnMember(const ListedMember& member) override {
    tar_.BeginFile(member.name, member.size, member.mode);
  }
  void OnData(const ListedMember& /*member*/, std::span<const char> bytes) override {
    tar_.Write(bytes);
  }
  void OnMemberEnd(const ListedMember& /*member*/) override {}

 private:
  TarWriter& tar_;
  const SigningKey& key_;
};

}  // namespace

void MakePatch(const PatchSources& sources, const SigningKey* key, const std::string& out) {
  const std::string version = WriteDescription(sources.description);
  const std::vector<SourceFile> files = Scan(sources);
  Manifest manifest;
  manifest.members.push_back(ListVersion(version));
  for (const SourceFile& file : files) manifest.members.push_back(file.member);

  const std::string text = WriteManifest(manifest);
  AtomicOutput output(out, kPatchMode);
  TarWriter tar(output.Fd());
  WriteHead(tar, text, key);
  WriteText(tar, kVersionName, version);
  for (const SourceFile& file : files) WriteSource(tar, file);
  tar.Finish();
  output.Commit();
}

void SignPatch(const std::string& path, const SigningKey& key, const std::string& out) {
  AtomicOutput output(out, kPatchMode);
  TarWriter tar(output.Fd());
  SigningSink sink(tar, key);
  WalkPatch(path, nullptr, FileTrust::kAnyOwner, sink);
  tar.Finish();
  output.Commit();
}

}  // namespace kalo::patch
