#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>

#include "host/update/patch_format/patch_file.h"
#include "tests/host/update/patch_format/raw_patch.h"

namespace kalo::patch {
namespace {

namespace fs = std::filesystem;

class ExtractPayloadTest : public ::testing::Test {
 protected:
  ExtractPayloadTest() { fs::create_directory(Target()); }

  [[nodiscard]] std::string Target() const { return folder_.Path("target"); }
  [[nodiscard]] std::string Patch(const test::RawPatch& patch) const {
    return folder_.Write("x.patch", patch.Bytes(maker_.key));
  }
  VerifyOutcome OutcomeOf(const std::string& path) {
    try {
      return ExtractPayload(path, maker_.ring, Target()).outcome;
    } catch (const PatchError& e) {
      error_number_ = e.ErrorNumber();
      return e.Outcome();
    }
  }
  static unsigned ModeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
  }

  test::TemporaryFolder folder_;
  test::Maker maker_;
  int error_number_ = 0;
};

TEST_F(ExtractPayloadTest, FilesGetTheirContentsAndModesWhateverTheUmask) {
  const mode_t before = umask(0077);
  const VerifyResult result = ExtractPayload(Patch(test::GoodPatch()), maker_.ring, Target());
  umask(before);
  EXPECT_TRUE(result.IsValid());
  EXPECT_EQ(test::Contents(Target() + "/bin/tool"), std::string(600, 'x'));
  EXPECT_EQ(test::Contents(Target() + "/readme"), "read me");
  EXPECT_EQ(ModeOf(Target() + "/bin/tool"), 0755U);
  EXPECT_EQ(ModeOf(Target() + "/readme"), 0644U);
  EXPECT_EQ(ModeOf(Target() + "/bin"), 0755U);
  EXPECT_FALSE(fs::exists(Target() + "/VERSION"));
  EXPECT_FALSE(fs::exists(Target() + "/updater"));
}

TEST_F(ExtractPayloadTest, ProgressRisesToTheTotal) {
  test::RawPatch patch = test::GoodPatch();
  patch.Member("payload/bin/tool").data = std::string(1024UL * 1024, 'y');
  std::uint64_t last = 0;
  std::uint64_t largest_step = 0;
  std::uint64_t total = 0;
  ExtractPayload(Patch(patch), maker_.ring, Target(), [&](std::uint64_t done, std::uint64_t all) {
    ASSERT_GE(done, last);
    ASSERT_LE(done, all);
    largest_step = std::max(largest_step, done - last);
    last = done;
    total = all;
  });
  EXPECT_EQ(last, total);
  EXPECT_GT(total, 1024UL * 1024);
  EXPECT_LE(largest_step, 256UL * 1024);
}

TEST_F(ExtractPayloadTest, ATargetThatIsNotEmptyIsLeftAlone) {
  (void)folder_.Write("target/readme", "mine");
  EXPECT_EQ(OutcomeOf(Patch(test::GoodPatch())), VerifyOutcome::kCannotWrite);
  EXPECT_EQ(error_number_, ENOTEMPTY);
  EXPECT_EQ(test::Contents(Target() + "/readme"), "mine");
}

TEST_F(ExtractPayloadTest, ATargetThatIsMissingOrALinkIsRefused) {
  fs::rename(Target(), folder_.Path("real"));
  EXPECT_EQ(OutcomeOf(Patch(test::GoodPatch())), VerifyOutcome::kCannotWrite);
  fs::create_directory_symlink(folder_.Path("real"), Target());
  EXPECT_EQ(OutcomeOf(Patch(test::GoodPatch())), VerifyOutcome::kCannotWrite);
  EXPECT_TRUE(fs::is_empty(folder_.Path("real")));
}

TEST_F(ExtractPayloadTest, ADamagedMemberThrows) {
  test::RawPatch patch = test::GoodPatch();
  patch.manifest = patch.RightManifest();
  patch.Member("payload/bin/tool").data[300] = 'z';
  EXPECT_EQ(OutcomeOf(Patch(patch)), VerifyOutcome::kBadMember);
}

TEST_F(ExtractPayloadTest, NothingIsWrittenBeforeTheSignatureHolds) {
  const std::string path =
      folder_.Write("x.patch", test::GoodPatch().Bytes(SigningKey::Generate()));
  EXPECT_EQ(OutcomeOf(path), VerifyOutcome::kBadSignature);
  EXPECT_TRUE(fs::is_empty(Target()));
}

TEST_F(ExtractPayloadTest, AWriteThatFailsThrowsWithItsCause) {
  test::RawPatch patch = test::GoodPatch();
  patch.Member("payload/bin/tool").data = std::string(300UL * 1024, 'y');
  const std::string path = Patch(patch);
  struct rlimit before {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const struct rlimit small { 64UL * 1024, before.rlim_max };
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const VerifyOutcome outcome = OutcomeOf(path);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  (void)std::signal(SIGXFSZ, handler);
  EXPECT_EQ(outcome, VerifyOutcome::kCannotWrite);
  EXPECT_EQ(error_number_, EFBIG);
}

TEST_F(ExtractPayloadTest, WhatTheProgressThrowsPassesThrough) {
  const std::string path = Patch(test::GoodPatch());
  EXPECT_THROW(ExtractPayload(path, maker_.ring, Target(),
                              [](std::uint64_t, std::uint64_t) { throw std::logic_error("stop"); }),
               std::logic_error);
}

}  // namespace
}  // namespace kalo::patch
