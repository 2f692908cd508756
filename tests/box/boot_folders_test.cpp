#include "box/node_init/boot_folders.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace kalo::box {
namespace {

namespace fs = std::filesystem;

std::string Read(const fs::path& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

mode_t ModeOf(const char* path) {
  struct stat found {};
  EXPECT_EQ(stat(path, &found), 0) << path;
  return found.st_mode & 07777;
}

TEST(BootFolders, EmptyFolderLosesAllKindsOfFiles) {
  const fs::path folder = "/root/full";
  fs::create_directories(folder / "a/b/c");
  std::ofstream(folder / "a/b/file") << "text";
  fs::create_symlink("/etc", folder / "link");
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  EmptyFolder(folder);
  EXPECT_TRUE(fs::is_empty(folder));
  EXPECT_TRUE(fs::exists("/etc/passwd"));
}

TEST(BootFolders, EmptyFolderLeavesOtherMountsAlone) {
  const fs::path folder = "/root/mounts";
  fs::create_directories(folder / "deep/mounted");
  std::ofstream(folder / "deep/file") << "text";
  ASSERT_EQ(mount("none", (folder / "deep/mounted").c_str(), "tmpfs", 0, nullptr), 0);
  std::ofstream(folder / "deep/mounted/kept") << "text";
  EmptyFolder(folder);
  EXPECT_TRUE(fs::exists(folder / "deep/mounted/kept"));
  EXPECT_FALSE(fs::exists(folder / "deep/file"));
  umount((folder / "deep/mounted").c_str());
}

TEST(BootFolders, ABootFindsWhatExistsFromBootAndNothingElse) {
  std::ofstream("/tmp/mesh_upgrade") << "step=\"upgrading\"\n";
  std::ofstream("/run/kalo/install") << "step=\"reboot\"\n";
  MakeBootFolders();
  EXPECT_FALSE(fs::exists("/tmp/mesh_upgrade"));
  EXPECT_FALSE(fs::exists("/run/kalo/install"));
  EXPECT_EQ(ModeOf("/tmp"), 0755U);
  EXPECT_EQ(ModeOf("/tmp/lock"), 0755U);
  EXPECT_EQ(ModeOf("/run/lock"), 0755U);
  EXPECT_EQ(ModeOf("/run/kalo"), 0700U);
  EXPECT_TRUE(fs::is_directory("/run/dbus"));
  EXPECT_TRUE(fs::is_directory("/var/lock"));
}

TEST(BootFolders, EachBootHasAnotherId) {
  const std::string first = WriteBootId();
  EXPECT_EQ(first.size(), 32U);
  EXPECT_EQ(first.find_first_not_of("0123456789abcdef"), std::string::npos) << first;
  EXPECT_EQ(Read("/run/boot_id"), first);
  EXPECT_NE(WriteBootId(), first);
}

}  // namespace
}  // namespace kalo::box
