#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "host/core/file_io.h"
#include "tests/host/core/support.h"

namespace {
bool random_fails = false;
}  // namespace

// Stands in front of the C library's.
extern "C" ssize_t getrandom(void* data, std::size_t size, unsigned flags) {
  if (!random_fails) return syscall(SYS_getrandom, data, size, flags);
  errno = EIO;
  return -1;
}

namespace kalo::test {
namespace {

TEST(AtomicFile, WritesAFileWithExactlyItsMode) {
  const Folder folder;
  const mode_t old_mask = umask(077);
  EXPECT_TRUE(WriteFileAtomic(folder.Path("file"), std::string("a\0b", 3), 0644));
  umask(old_mask);
  EXPECT_EQ(folder.Read("file"), std::string("a\0b", 3));
  struct stat status = {};
  ASSERT_EQ(stat(folder.Path("file").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST(AtomicFile, ReplacesWhatAReaderHasOpenWithoutTouchingIt) {
  const Folder folder;
  folder.Write("file", "old");
  std::filesystem::create_hard_link(folder.Path("file"), folder.Path("reader"));
  EXPECT_TRUE(WriteFileAtomic(folder.Path("file"), std::string(1 << 20, 'n'), 0600));
  EXPECT_EQ(folder.Read("file").size(), 1U << 20);
  EXPECT_EQ(folder.Read("reader"), "old");
  EXPECT_EQ(folder.Names(), (std::vector<std::string>{"file", "reader"}));
}

TEST(AtomicFile, ReplacesALinkInsteadOfWritingThroughIt) {
  const Folder folder;
  folder.Write("target", "old");
  std::filesystem::create_symlink("target", folder.Path("file"));
  EXPECT_TRUE(WriteFileAtomic(folder.Path("file"), "new", 0600));
  EXPECT_FALSE(std::filesystem::is_symlink(folder.Path("file")));
  EXPECT_EQ(folder.Read("target"), "old");
}

TEST(AtomicFile, TakesAPathWithoutAFolder) {
  const Folder folder;
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder.Path());
  EXPECT_TRUE(WriteFileAtomic("file", "new", 0600));
  std::filesystem::current_path(before);
  EXPECT_EQ(folder.Read("file"), "new");
}

TEST(AtomicFile, FailureLeavesTheOldFileAndNoTemporaryOne) {
  const Folder folder;
  const SmallTmpfs disk(folder.Path());
  folder.Write("file", "old");
  EXPECT_FALSE(WriteFileAtomic(folder.Path("file"), std::string(1 << 20, 'n'), 0600));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(folder.Read("file"), "old");
  EXPECT_EQ(folder.Names(), std::vector<std::string>{"file"});
}

TEST(AtomicFile, WithoutRandomnessItIsAFailureLikeAnyOther) {
  const Folder folder;
  folder.Write("file", "old");
  random_fails = true;
  const bool written = WriteFileAtomic(folder.Path("file"), "new", 0600);
  const int error = errno;
  random_fails = false;
  EXPECT_FALSE(written);
  EXPECT_EQ(error, EIO);
  EXPECT_EQ(folder.Read("file"), "old");
}

TEST(AtomicFile, AFolderAtThePathIsRefused) {
  const Folder folder;
  std::filesystem::create_directory(folder.Path("file"));
  EXPECT_FALSE(WriteFileAtomic(folder.Path("file"), "new", 0600));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(folder.Names(), std::vector<std::string>{"file"});
}

TEST(AtomicFile, APathWithoutAFileNameIsRefused) {
  for (const char* path : {"", "/", "/tmp/", "/tmp/.", "/tmp/.."}) {
    EXPECT_FALSE(WriteFileAtomic(path, "new", 0600)) << path;
    EXPECT_EQ(errno, EINVAL) << path;
  }
}

TEST(RandomHex, IsLongEnoughAndNeverTheSame) {
  const std::string first = RandomHex(16);
  EXPECT_EQ(first.size(), 32U);
  EXPECT_EQ(first.find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_NE(first, RandomHex(16));
  EXPECT_EQ(RandomHex(1000).size(), 2000U);
}

}  // namespace
}  // namespace kalo::test
