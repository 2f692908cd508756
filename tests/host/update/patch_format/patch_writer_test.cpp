#include "host/update/patch_format/patch_writer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <map>

#include "host/update/patch_format/patch_listing.h"
#include "tests/host/update/patch_format/raw_patch.h"

namespace kalo::patch {
namespace {

namespace fs = std::filesystem;

using Tree = std::map<std::string, std::pair<std::string, unsigned>>;

Tree ReadTree(const std::string& folder) {
  Tree tree;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const auto mode = static_cast<unsigned>(entry.status().permissions());
    const std::string contents = entry.is_directory() ? "(folder)" : test::Contents(entry.path());
    tree[entry.path().lexically_relative(folder)] = {contents, mode};
  }
  return tree;
}

class PatchWriterTest : public ::testing::Test {
 protected:
  PatchWriterTest() {
    (void)folder_.Write("in/bin/tool", "a program", 0755);
    (void)folder_.Write("in/lib/deep/" + std::string(80, 'n') + "/" + std::string(90, 'm'), "long");
    (void)folder_.Write("in/big", std::string(700001, 'b'));
    (void)folder_.Write("in/empty", "");
    (void)folder_.Write("texts/en.txt", "words");
    sources_.description = {"kalo_x1", "VXM 1.4.0-76010", 76010, 0};
    sources_.payload_folder = folder_.Path("in");
    sources_.updater_file = folder_.Write("the-updater", "update", 0755);
    sources_.texts_folder = folder_.Path("texts");
    out_ = folder_.Path("out.patch");
  }

  [[nodiscard]] bool NothingWritten() const {
    for (const auto& entry : fs::directory_iterator(folder_.Path(""))) {
      if (entry.path().filename().string().starts_with("out.patch")) return false;
    }
    return true;
  }

  test::TemporaryFolder folder_;
  test::Maker maker_;
  PatchSources sources_;
  std::string out_;
};

TEST_F(PatchWriterTest, ASignedPatchIsValidAndGivesBackTheTree) {
  MakePatch(sources_, &maker_.key, out_);
  const VerifyResult verified = VerifyPatch(out_, maker_.ring);
  ASSERT_TRUE(verified.IsValid()) << verified.reason;
  EXPECT_EQ(verified.description.unique, "kalo_x1");
  EXPECT_EQ(verified.payload_files, 4U);
  fs::create_directory(folder_.Path("back"));
  ExtractPayload(out_, maker_.ring, folder_.Path("back"));
  EXPECT_EQ(ReadTree(folder_.Path("back")), ReadTree(folder_.Path("in")));
}

TEST_F(PatchWriterTest, TheSameSourcesGiveTheSameBytes) {
  MakePatch(sources_, &maker_.key, out_);
  MakePatch(sources_, &maker_.key, folder_.Path("again.patch"));
  EXPECT_EQ(test::Contents(out_), test::Contents(folder_.Path("again.patch")));
}

TEST_F(PatchWriterTest, AnUnsignedPatchIsSignedLater) {
  MakePatch(sources_, nullptr, out_);
  EXPECT_EQ(VerifyPatch(out_, maker_.ring).outcome, VerifyOutcome::kBadSignature);
  EXPECT_FALSE(ListPatch(out_).result.is_signed);
  SignPatch(out_, maker_.key, out_);
  EXPECT_TRUE(VerifyPatch(out_, maker_.ring).IsValid());
  MakePatch(sources_, &maker_.key, folder_.Path("at-once.patch"));
  EXPECT_EQ(test::Contents(out_), test::Contents(folder_.Path("at-once.patch")));
}

TEST_F(PatchWriterTest, SigningAgainReplacesTheSignature) {
  MakePatch(sources_, &maker_.key, out_);
  const test::Maker other;
  SignPatch(out_, other.key, out_);
  EXPECT_TRUE(VerifyPatch(out_, other.ring).IsValid());
  EXPECT_EQ(VerifyPatch(out_, maker_.ring).outcome, VerifyOutcome::kBadSignature);
}

TEST_F(PatchWriterTest, ADamagedPatchIsNotSignedAndStaysAsItWas) {
  test::RawPatch patch = test::GoodPatch();
  patch.manifest = patch.RightManifest();
  patch.Member("payload/readme").data = "changed";
  const std::string path = folder_.Write("bad.patch", patch.Bytes(maker_.key));
  const std::string before = test::Contents(path);
  EXPECT_THROW(SignPatch(path, maker_.key, path), PatchError);
  EXPECT_EQ(test::Contents(path), before);
}

TEST_F(PatchWriterTest, TheListingNamesEveryMember) {
  MakePatch(sources_, &maker_.key, out_);
  const PatchListing listing = ListPatch(out_);
  EXPECT_TRUE(listing.result.is_signed);
  ASSERT_EQ(listing.manifest.members.size(), 7U);
  EXPECT_EQ(listing.manifest.members[0].name, "VERSION");
  EXPECT_EQ(listing.manifest.members[1].name, "updater");
  EXPECT_EQ(listing.manifest.members[1].mode, kProgramMode);
  EXPECT_EQ(listing.manifest.members[2].name, "texts/en.txt");
  EXPECT_EQ(listing.manifest.members[3].name, "payload/big");
}

TEST_F(PatchWriterTest, WhatAPatchCannotCarryIsRefusedAndNothingIsWritten) {
  ASSERT_EQ(symlink("/etc/passwd", folder_.Path("in/link").c_str()), 0);
  EXPECT_THROW(MakePatch(sources_, &maker_.key, out_), PatchError);
  fs::remove(folder_.Path("in/link"));
  fs::create_directory(folder_.Path("in/nothing"));
  EXPECT_THROW(MakePatch(sources_, &maker_.key, out_), PatchError) << "an empty folder";
  fs::remove(folder_.Path("in/nothing"));
  sources_.updater_file = folder_.Path("missing");
  EXPECT_THROW(MakePatch(sources_, &maker_.key, out_), PatchError);
  EXPECT_TRUE(NothingWritten());
}

TEST_F(PatchWriterTest, ADescriptionThatDisagreesIsRefused) {
  sources_.description.build = 76011;
  EXPECT_THROW(MakePatch(sources_, &maker_.key, out_), PatchError);
  sources_.description = {"", "VXM 1.4.0-76010", 76010, 0};
  EXPECT_THROW(MakePatch(sources_, &maker_.key, out_), PatchError);
  EXPECT_TRUE(NothingWritten());
}

}  // namespace
}  // namespace kalo::patch
