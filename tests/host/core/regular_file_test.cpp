#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "host/core/file_io.h"
#include "tests/host/core/support.h"

namespace kalo::test {
namespace {

constexpr std::size_t kLimit = 100;

TEST(ReadFile, ReadsFilesOfEverySizeUpToTheLimit) {
  const Folder folder;
  for (std::size_t size = 0; size <= kLimit; ++size) {
    const std::string contents(size, static_cast<char>(size));
    folder.Write("file", contents);
    EXPECT_EQ(ReadFile(folder.Path("file"), kLimit), contents);
  }
  folder.Write("file", std::string(kLimit + 1, 'x'));
  EXPECT_FALSE(ReadFile(folder.Path("file"), kLimit));
  EXPECT_EQ(errno, EFBIG);
}

TEST(ReadFile, ReadsFilesOfTheKernelThatSayTheyAreEmpty) {
  const auto maps = ReadFile("/proc/self/maps", 16UL << 20);
  ASSERT_TRUE(maps);
  EXPECT_GT(maps->size(), 4097U);
  EXPECT_TRUE(maps->ends_with('\n'));
  EXPECT_FALSE(ReadFile("/proc/self/maps", kLimit));
  EXPECT_EQ(errno, EFBIG);
}

TEST(ReadFile, RefusesLinksFifosFoldersAndDevices) {
  const Folder folder;
  folder.Write("file", "x");
  std::filesystem::create_symlink("file", folder.Path("link"));
  ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), 0600), 0);
  EXPECT_FALSE(ReadFile(folder.Path("none"), kLimit));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(ReadFile(folder.Path("link"), kLimit));
  EXPECT_EQ(errno, ELOOP);
  for (const std::string& path : {folder.Path("fifo"), folder.Path(), std::string("/dev/zero")}) {
    EXPECT_FALSE(ReadFile(path, kLimit)) << path;
    EXPECT_EQ(errno, EINVAL) << path;
  }
}

}  // namespace
}  // namespace kalo::test
