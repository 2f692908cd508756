#include "host/core/private_folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/core/process.h"
#include "platform/paths.h"
#include "tests/host/core/support.h"

namespace kalo::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kScratch = KALO::paths::kPrecheckScratch;
constexpr int kFlags = 187;
constexpr uid_t kStranger = 1234;

// Everyone may add files to /tmp, and the kernel follows links in it.
class PrivateFolderTest : public testing::Test {
 protected:
  PrivateFolderTest() {
    fs::permissions("/tmp", fs::perms::all | fs::perms::sticky_bit);
    fs::remove_all(kScratch);
  }
  ~PrivateFolderTest() override { fs::remove_all(kScratch); }

  static int Make() { return KLIBCExec("/bin/mkdir", "-p", kScratch, nullptr, nullptr); }
  static bool IsNewAndOurs() {
    struct stat status = {};
    return lstat(kScratch, &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & 07777U) == 0700 && fs::is_empty(kScratch);
  }
  static void ExpectMadeNew() {
    EXPECT_EQ(Make(), 0);
    EXPECT_TRUE(IsNewAndOurs());
    for (const auto& entry : fs::directory_iterator("/tmp")) {
      EXPECT_FALSE(entry.path().filename().string().starts_with(".kalo-")) << entry.path();
    }
  }

  Folder folder_;
};

TEST_F(PrivateFolderTest, IsMadeWhereNothingIs) {
  ExpectMadeNew();
}

TEST_F(PrivateFolderTest, IsOursWhateverTheUmask) {
  const mode_t usual = umask(0777);
  ExpectMadeNew();
  umask(usual);
}

TEST_F(PrivateFolderTest, ReplacesAFolderWithAllItHolds) {
  fs::create_directories(std::string(kScratch) + "/texts/deep");
  folder_.Write("kept", "ours");
  fs::create_symlink(folder_.Path("kept"), std::string(kScratch) + "/updater");
  ExpectMadeNew();
  EXPECT_EQ(folder_.Read("kept"), "ours");
}

TEST_F(PrivateFolderTest, ReplacesALinkAndNotItsTarget) {
  folder_.Write("kept", "ours");
  fs::create_directory_symlink(folder_.Path(), kScratch);
  ExpectMadeNew();
  EXPECT_EQ(folder_.Read("kept"), "ours");
}

TEST_F(PrivateFolderTest, ReplacesAnythingElse) {
  ASSERT_EQ(mkfifo(kScratch, 0666), 0);
  ExpectMadeNew();
  fs::remove_all(kScratch);
  fs::create_symlink("/no/such/target", kScratch);
  ExpectMadeNew();
}

TEST_F(PrivateFolderTest, ReplacesAnotherUsersFolder) {
  fs::create_directory(kScratch);
  if (chown(kScratch, kStranger, kStranger) != 0) GTEST_SKIP() << "this root has one user only";
  ExpectMadeNew();
}

TEST_F(PrivateFolderTest, IsNotMadeWhereOthersMayReplaceIt) {
  fs::permissions("/tmp", fs::perms::all);
  EXPECT_LT(Make(), 0);
  EXPECT_EQ(errno, EPERM);
  fs::permissions("/tmp", fs::perms::all | fs::perms::sticky_bit);
}

TEST_F(PrivateFolderTest, IsOpenedOnlyWhenNobodyElseCouldFillIt) {
  ASSERT_EQ(Make(), 0);
  EXPECT_TRUE(OpenPrivateFolder(kScratch));
  fs::permissions(kScratch, fs::perms(0755));
  EXPECT_FALSE(OpenPrivateFolder(kScratch));
  EXPECT_EQ(errno, EACCES);
  fs::remove_all(kScratch);
  EXPECT_FALSE(OpenPrivateFolder(kScratch));
  EXPECT_EQ(errno, ENOENT);
  fs::create_directory_symlink(folder_.Path(), kScratch);
  EXPECT_FALSE(OpenPrivateFolder(kScratch));
  EXPECT_TRUE(errno == ELOOP || errno == ENOTDIR) << errno;
}

// An unprivileged process that plants its own folder, link or file again and again.
int Plant(const std::string& target) {
  if (setgid(kStranger) != 0 || setuid(kStranger) != 0) return 1;
  while (true) {
    if (mkdir(kScratch, 0777) == 0) close(open("/tmp/patchtmp/updater", O_CREAT | O_CLOEXEC, 0777));
    rename(kScratch, "/tmp/away");
    if (symlink(target.c_str(), kScratch) == 0) rename(kScratch, "/tmp/away-link");
    unlink("/tmp/away-link");
    unlink("/tmp/away/updater");
    rmdir("/tmp/away");
  }
}

TEST_F(PrivateFolderTest, NeverHoldsWhatARacingProcessPlanted) {
  fs::create_directory(kScratch);
  if (chown(kScratch, kStranger, kStranger) != 0) GTEST_SKIP() << "this root has one user only";
  fs::permissions(folder_.Path(), fs::perms::all);
  const Child planter([this] { return Plant(folder_.Path()); });
  int lost = 0;
  for (int i = 0; i < 100; ++i) {
    (void)KLIBCExec("/bin/rm", "-rf", kScratch, nullptr, nullptr);
    if (Make() == 0 && !IsNewAndOurs()) ++lost;
  }
  EXPECT_EQ(lost, 0) << "of 100 races";
}

// Archives are unpacked into such a folder only.
class Unpacking : public PrivateFolderTest {
 protected:
  Unpacking() {
    for (const char* name : {"updater", "VERSION", "manifest.json", "manifest.sig"}) {
      folder_.Write(name, name);
    }
    fs::create_directory(folder_.Path("texts"));
    folder_.Write("texts/enu.txt", "text");
    EXPECT_EQ(KLIBCExecl("/bin/tar", kFlags, "--owner=0", "--group=0", "-cf", archive_.c_str(),
                         "-C", folder_.Path().c_str(), "manifest.json", "manifest.sig", "VERSION",
                         "updater", "texts", nullptr),
              0);
    fs::permissions(archive_, fs::perms(0600));
  }
  ~Unpacking() override { fs::remove(archive_); }

  [[nodiscard]] int Unpack() const {
    return KLIBCExecl("/bin/tar", kFlags, "-xf", archive_.c_str(), "-C", kScratch, "updater",
                      "VERSION", "texts", nullptr);
  }

  std::string archive_ = "/tmp/next.pat";
};

TEST_F(Unpacking, BringsTheSignedListToo) {
  ASSERT_EQ(Make(), 0);
  EXPECT_EQ(Unpack(), 0);
  for (const char* name :
       {"updater", "VERSION", "texts/enu.txt", "manifest.json", "manifest.sig"}) {
    EXPECT_TRUE(fs::exists(fs::path(kScratch) / name)) << name;
  }
}

TEST_F(Unpacking, NeedsAFolderThatIsOursAlone) {
  fs::create_directory(kScratch);
  fs::permissions(kScratch, fs::perms::all);
  EXPECT_LT(Unpack(), 0);
  EXPECT_TRUE(fs::is_empty(kScratch));
  fs::remove(kScratch);
  fs::create_directory(folder_.Path("target"));
  fs::create_directory_symlink(folder_.Path("target"), kScratch);
  EXPECT_LT(Unpack(), 0);
  EXPECT_TRUE(fs::is_empty(folder_.Path("target")));
}

TEST_F(Unpacking, TakesNoArchiveThatOthersCanWrite) {
  ASSERT_EQ(Make(), 0);
  fs::permissions(archive_, fs::perms(0622));
  EXPECT_LT(Unpack(), 0);
  fs::permissions(archive_, fs::perms(0600));
  fs::rename(archive_, "/tmp/real.pat");
  fs::create_symlink("/tmp/real.pat", archive_);
  EXPECT_LT(Unpack(), 0);
  fs::remove("/tmp/real.pat");
  EXPECT_TRUE(fs::is_empty(kScratch));
}

}  // namespace
}  // namespace kalo::test
