#include "platform/update/patch.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "platform/paths.h"
#include "tests/host/update/patch_format/raw_patch.h"

namespace KALO::MESH::SDK::Upgrade {
namespace {

namespace fs = std::filesystem;
using kalo::test::GoodPatch;

class PatchTest : public ::testing::Test {
 protected:
  PatchTest() {
    fs::remove_all(paths::kPatchKeys);
    fs::create_directories(paths::kPatchKeys);
    key_file_ = std::string(paths::kPatchKeys) + "/maker.pem";
    std::ofstream(key_file_) << maker_.key.PublicPem();
  }

  std::string Store(const kalo::test::RawPatch& patch, unsigned mode = 0600) {
    return folder_.Write("kalo_cap1_x.patch", patch.Bytes(maker_.key), mode);
  }

  kalo::test::TemporaryFolder folder_;
  kalo::test::Maker maker_;
  std::string key_file_;
};

TEST_F(PatchTest, AValidPatchIsDescribedAndStays) {
  const std::string path = Store(GoodPatch());
  const PatchInfo info = Patch::ParsePatchInfo(path);
  EXPECT_TRUE(info.valid);
  EXPECT_EQ(info.path, path);
  EXPECT_EQ(info.version, "VXM 1.4.0-76010 Update 3");
  EXPECT_EQ(info.unique, "kalo_cap1");
  EXPECT_EQ(info.build_num, 76010);
  EXPECT_EQ(info.nano_num, 3);
  EXPECT_TRUE(fs::exists(path));
}

TEST_F(PatchTest, AFileThatDoesNotVerifyIsRemoved) {
  kalo::test::RawPatch patch = GoodPatch();
  patch.manifest = patch.RightManifest();
  patch.Member("payload/readme").data = "other";
  const std::string path = Store(patch);
  EXPECT_FALSE(Patch::ParsePatchInfo(path).valid);
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(PatchTest, WithoutAKeyOnTheNodeThePatchIsRemoved) {
  fs::remove(key_file_);
  const std::string path = Store(GoodPatch());
  EXPECT_FALSE(Patch::ParsePatchInfo(path).valid);
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(PatchTest, AFileThatOthersCanWriteIsRemovedAlthoughItVerifies) {
  for (const unsigned mode : {0620U, 0602U, 0666U}) {
    const std::string path = Store(GoodPatch(), mode);
    EXPECT_FALSE(Patch::ParsePatchInfo(path).valid) << mode;
    EXPECT_FALSE(fs::exists(path)) << mode;
  }
}

TEST_F(PatchTest, ALinkIsRemovedAndWhatItPointsToStays) {
  const std::string path = Store(GoodPatch());
  const std::string link = folder_.Path("link.patch");
  ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
  EXPECT_FALSE(Patch::ParsePatchInfo(link).valid);
  EXPECT_FALSE(fs::is_symlink(link));
  EXPECT_TRUE(fs::exists(path));
}

TEST_F(PatchTest, AFifoIsRemovedWithoutWaitingForIt) {
  const std::string path = folder_.Path("fifo");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_FALSE(Patch::ParsePatchInfo(path).valid);
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(PatchTest, AMissingFileIsJustNotValid) {
  EXPECT_FALSE(Patch::ParsePatchInfo(folder_.Path("missing")).valid);
  EXPECT_FALSE(Patch::ParsePatchInfo(folder_.Path("no/folder")).valid);
  EXPECT_FALSE(Patch::ParsePatchInfo("").valid);
}

TEST_F(PatchTest, WhatCannotBeRemovedThrows) {
  const std::string path = folder_.Path("a-folder");
  fs::create_directory(path);
  EXPECT_THROW((void)Patch::ParsePatchInfo(path), std::exception);
}

// As many open descriptors as the process may have: neither file nor keys can be opened.
TEST_F(PatchTest, WhatCannotBeLookedAtThrowsAndStays) {
  const std::string path = Store(GoodPatch());
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{3, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_THROW((void)Patch::ParsePatchInfo(path), std::system_error);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_TRUE(Patch::ParsePatchInfo(path).valid);
}

}  // namespace
}  // namespace KALO::MESH::SDK::Upgrade
