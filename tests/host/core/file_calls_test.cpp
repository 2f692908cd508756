#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/core/file.h"
#include "tests/host/core/support.h"

namespace kalo::test {
namespace {

TEST(FileCalls, ExistTellsOfFilesAndFoldersButNotOfDanglingLinks) {
  const Folder folder;
  folder.Write("file", "");
  std::filesystem::create_symlink("file", folder.Path("link"));
  std::filesystem::create_symlink("none", folder.Path("dangling"));
  EXPECT_NE(KLIBCFileExist(folder.Path("file").c_str()), 0);
  EXPECT_NE(KLIBCFileExist(folder.Path().c_str()), 0);
  EXPECT_NE(KLIBCFileExist(folder.Path("link").c_str()), 0);
  EXPECT_EQ(KLIBCFileExist(folder.Path("dangling").c_str()), 0);
  EXPECT_EQ(KLIBCFileExist(folder.Path("none").c_str()), 0);
  EXPECT_EQ(KLIBCFileExist(""), 0);
  EXPECT_EQ(KLIBCFileExist(nullptr), 0);
}

TEST(FileCalls, RenameReplacesTheTarget) {
  const Folder folder;
  folder.Write("a", "new");
  folder.Write("b", "old");
  EXPECT_EQ(KLIBCSysRename(folder.Path("a").c_str(), folder.Path("b").c_str()), 0);
  EXPECT_EQ(folder.Read("b"), "new");
  EXPECT_EQ(folder.Names(), std::vector<std::string>{"b"});
}

TEST(FileCalls, RenameFailsWithErrno) {
  const Folder folder;
  EXPECT_EQ(KLIBCSysRename(folder.Path("a").c_str(), folder.Path("b").c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
  folder.Write("a", "stays");
  EXPECT_EQ(KLIBCSysRename(folder.Path("a").c_str(), "/dev/shm/a"), -1);
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(folder.Read("a"), "stays");
  EXPECT_EQ(KLIBCSysRename(nullptr, "b"), -1);
  EXPECT_EQ(KLIBCSysRename("a", nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
}

}  // namespace
}  // namespace kalo::test
