#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "platform/core/key_value.h"
#include "tests/host/core/support.h"

namespace kalo::test {
namespace {

constexpr uid_t kStranger = 1234;

// What others may have put at a path before us.
class KeyValuePlanted : public testing::Test {
 protected:
  void ExpectUnreadable(int error) {
    char buffer[64] = "~";
    errno = 0;
    EXPECT_LT(KLIBCFileGetKeyValue(path_.c_str(), "a", buffer, sizeof buffer, 0), 0);
    EXPECT_EQ(errno, error);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(KLIBCFileCheckKeyValue(path_.c_str(), "a", "evil", 0), 0);
    errno = 0;
    EXPECT_EQ(KLIBCFileRemoveKey(path_.c_str(), "a"), -1);
    EXPECT_EQ(errno, error);
  }
  void ExpectReplacedBySet() {
    EXPECT_EQ(KLIBCFileSetKeyValue(path_.c_str(), "b", "ours", 0), 1);
    struct stat status = {};
    ASSERT_EQ(lstat(path_.c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(status.st_uid, geteuid());
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_EQ(folder_.Read("file"), "b=\"ours\"\n");
  }
  bool GiveAway() const { return chown(path_.c_str(), kStranger, kStranger) == 0; }

  Folder folder_;
  std::string path_ = folder_.Path("file");
};

TEST_F(KeyValuePlanted, ALinkIsNeverFollowed) {
  folder_.Write("target", "a=\"evil\"\nb=\"ours\"\n");
  std::filesystem::create_symlink("target", path_);
  ExpectUnreadable(ELOOP);
  ExpectReplacedBySet();
  EXPECT_EQ(folder_.Read("target"), "a=\"evil\"\nb=\"ours\"\n");
}

TEST_F(KeyValuePlanted, ASecondNameOfAFileOfOursCountsOnlyInAFolderOfOurs) {
  folder_.Write("target", "a=\"evil\"\n");
  std::filesystem::create_hard_link(folder_.Path("target"), path_);
  EXPECT_EQ(KLIBCFileCheckKeyValue(path_.c_str(), "a", "evil", 0), 1);
  std::filesystem::permissions(folder_.Path(),
                               std::filesystem::perms::all | std::filesystem::perms::sticky_bit);
  ExpectUnreadable(EACCES);
  ExpectReplacedBySet();
  EXPECT_EQ(folder_.Read("target"), "a=\"evil\"\n");
}

TEST_F(KeyValuePlanted, ADanglingLinkIsReplacedAndItsTargetNotMade) {
  std::filesystem::create_symlink("target", path_);
  ExpectUnreadable(ELOOP);
  ExpectReplacedBySet();
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("target")));
}

TEST_F(KeyValuePlanted, AFifoDoesNotHangAndIsReplaced) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0666), 0);
  ExpectUnreadable(EINVAL);
  ExpectReplacedBySet();
}

TEST_F(KeyValuePlanted, ASocketIsReplaced) {
  const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path_.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ExpectUnreadable(EINVAL);
  ExpectReplacedBySet();
}

TEST_F(KeyValuePlanted, AnotherUsersFileIsNeitherReadNorMerged) {
  folder_.Write("file", "a=\"evil\"\nb=\"ours\"\n");
  if (!GiveAway()) GTEST_SKIP() << "this root has one user only";
  ExpectUnreadable(EACCES);
  ExpectReplacedBySet();
}

TEST_F(KeyValuePlanted, AnotherUsersFileStandsUntilItIsSet) {
  folder_.Write("file", "a=\"evil\"\n");
  if (!GiveAway()) GTEST_SKIP() << "this root has one user only";
  EXPECT_EQ(KLIBCFileSetKeyValue(path_.c_str(), "not a key", "v", 0), -1);
  EXPECT_EQ(folder_.Read("file"), "a=\"evil\"\n");
}

TEST_F(KeyValuePlanted, RootsFileIsReadByAnotherUserWhoCannotReplaceIt) {
  folder_.Write("file", "a=\"1\"\n");
  std::filesystem::permissions(folder_.Path(), std::filesystem::perms(0755));
  std::filesystem::permissions(path_, std::filesystem::perms(0644));
  Child child([&] {
    if (setresuid(kStranger, kStranger, kStranger) != 0) return 77;
    char buffer[64];
    if (KLIBCFileGetKeyValue(path_.c_str(), "a", buffer, sizeof buffer, 0) != 1) return 1;
    if (KLIBCFileSetKeyValue(path_.c_str(), "a", "2", 0) >= 0) return 2;
    return errno == EACCES ? 0 : 3;
  });
  const int result = child.Wait();
  if (result == 77) GTEST_SKIP() << "this root has one user only";
  EXPECT_EQ(result, 0);
  EXPECT_EQ(folder_.Read("file"), "a=\"1\"\n");
}

TEST_F(KeyValuePlanted, AFolderIsRefusedAndStays) {
  std::filesystem::create_directory(path_);
  ExpectUnreadable(EINVAL);
  EXPECT_LT(KLIBCFileSetKeyValue(path_.c_str(), "b", "ours", 0), 0);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_TRUE(std::filesystem::is_directory(path_));
  EXPECT_EQ(folder_.Names(), std::vector<std::string>{"file"});
}

}  // namespace
}  // namespace kalo::test
