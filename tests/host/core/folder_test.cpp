#include "host/core/folder.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "platform/core/file.h"
#include "tests/host/core/support.h"

namespace kalo::test {
namespace {

namespace fs = std::filesystem;

TEST(RemoveContents, EmptiesAFolderAndKeepsIt) {
  const Folder folder;
  folder.Write("file", "x");
  fs::create_directories(folder.Path("a/b/c"));
  std::ofstream(folder.Path("a/b/file")) << "x";
  ASSERT_EQ(mkfifo(folder.Path("pipe").c_str(), 0600), 0);
  EXPECT_TRUE(RemoveContents(folder.Path()));
  EXPECT_TRUE(folder.Names().empty());
  EXPECT_TRUE(RemoveContents(folder.Path()));
}

TEST(RemoveContents, NeverFollowsALink) {
  const Folder folder;
  const Folder outside;
  outside.Write("precious", "x");
  fs::create_symlink(outside.Path(), folder.Path("link"));
  EXPECT_TRUE(RemoveContents(folder.Path()));
  EXPECT_EQ(outside.Read("precious"), "x");
  fs::create_symlink(outside.Path(), folder.Path("link"));
  EXPECT_FALSE(RemoveContents(folder.Path("link")));
  EXPECT_EQ(outside.Read("precious"), "x");
}

TEST(RemoveContents, TellsThatThereIsNone) {
  const Folder folder;
  EXPECT_FALSE(RemoveContents(folder.Path("none")));
  EXPECT_EQ(errno, ENOENT);
  folder.Write("file", "x");
  EXPECT_FALSE(RemoveContents(folder.Path("file")));
}

TEST(RemoveContents, NeverLeavesTheFileSystem) {
  const Folder folder;
  fs::create_directory(folder.Path("mount"));
  folder.Write("file", "x");
  const SmallTmpfs other(folder.Path("mount"));
  std::ofstream(folder.Path("mount/precious")) << "x";
  EXPECT_FALSE(RemoveContents(folder.Path()));
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(folder.Names(), std::vector<std::string>{"mount"});
  EXPECT_TRUE(fs::exists(folder.Path("mount/precious")));
}

mode_t ModeOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

TEST(MkdirP, MakesAFolderWithItsParents) {
  const Folder folder;
  const mode_t old = umask(077);
  EXPECT_EQ(KALOFSMkdirP(folder.Path("a/b/c").c_str(), 0, 1, -1, -1), 0);
  EXPECT_EQ(KALOFSMkdirP(folder.Path("d").c_str(), 0700, 0, 0, 0), 0);
  umask(old);
  EXPECT_EQ(ModeOf(folder.Path("a/b/c")), 0755U);
  EXPECT_EQ(ModeOf(folder.Path("d")), 0700U);
}

TEST(MkdirP, AFolderThatIsThereIsAFailureOnlyWhenAskedSo) {
  const Folder folder;
  fs::create_directory(folder.Path("a"));
  fs::permissions(folder.Path("a"), fs::perms::owner_all);
  EXPECT_EQ(KALOFSMkdirP(folder.Path("a").c_str(), 0, 1, -1, -1), 0);
  EXPECT_EQ(ModeOf(folder.Path("a")), 0700U) << "it stays as it is";
  EXPECT_LT(KALOFSMkdirP(folder.Path("a").c_str(), 0, 0, -1, -1), 0);
  EXPECT_EQ(errno, EEXIST);
}

TEST(MkdirP, FollowsNoLinkAndNoFile) {
  const Folder folder;
  const Folder outside;
  fs::create_symlink(outside.Path(), folder.Path("link"));
  EXPECT_LT(KALOFSMkdirP(folder.Path("link/a").c_str(), 0, 1, -1, -1), 0);
  EXPECT_LT(KALOFSMkdirP(folder.Path("link").c_str(), 0, 1, -1, -1), 0);
  folder.Write("file", "x");
  EXPECT_LT(KALOFSMkdirP(folder.Path("file/a").c_str(), 0, 1, -1, -1), 0);
  EXPECT_TRUE(outside.Names().empty());
  EXPECT_LT(KALOFSMkdirP(folder.Path("a/../b").c_str(), 0, 1, -1, -1), 0);
  EXPECT_LT(KALOFSMkdirP("", 0, 1, -1, -1), 0);
  EXPECT_LT(KALOFSMkdirP(nullptr, 0, 1, -1, -1), 0);
}

TEST(BytesIn, AddsWhatTheFilesBelowHave) {
  const Folder folder;
  const Folder outside;
  outside.Write("large", std::string(5000, 'x'));
  folder.Write("file", std::string(100, 'x'));
  fs::create_directories(folder.Path("a/b"));
  std::ofstream(folder.Path("a/b/file")) << "1234567";
  fs::create_symlink(outside.Path("large"), folder.Path("link"));
  fs::create_symlink(outside.Path(), folder.Path("a/folder"));
  EXPECT_EQ(BytesIn(folder.Path()), 107U);
}

TEST(BytesIn, OfNothingIsNothing) {
  const Folder folder;
  EXPECT_EQ(BytesIn(folder.Path()), 0U);
  EXPECT_EQ(BytesIn(folder.Path("none")), 0U);
}

}  // namespace
}  // namespace kalo::test
