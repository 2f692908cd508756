#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <string>

#include "host/core/spawn.h"
#include "platform/core/file.h"
#include "platform/core/key_value.h"
#include "tests/host/core/support.h"

namespace kalo::test {
namespace {

class KeyValueCalls : public testing::Test {
 protected:
  int Get(const std::string& key) {
    buffer_.fill('~');
    return KLIBCFileGetKeyValue(path_.c_str(), key.c_str(), buffer_.data(), buffer_.size(), 0);
  }
  int Set(const std::string& key, const std::string& value) {
    return KLIBCFileSetKeyValue(path_.c_str(), key.c_str(), value.c_str(), 0);
  }
  ino_t Inode() const {
    struct stat status = {};
    return stat(path_.c_str(), &status) == 0 ? status.st_ino : 0;
  }
  mode_t Mode() const {
    struct stat status = {};
    return stat(path_.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
  }

  Folder folder_;
  std::string path_ = folder_.Path("file");
  std::array<char, 8192> buffer_ = {};
};

TEST_F(KeyValueCalls, GetAnswersTheLengthAndFillsTheBuffer) {
  folder_.Write("file", "step=\"uploading\"\n");
  EXPECT_EQ(Get("step"), 9);
  EXPECT_STREQ(buffer_.data(), "uploading");
}

TEST_F(KeyValueCalls, GetAnswersZeroAndEmptiesTheBufferForAnAbsentOrEmptyKey) {
  folder_.Write("file", "a=\"\"\nb=\n");
  for (const char* key : {"a", "b", "c"}) {
    EXPECT_EQ(Get(key), 0) << key;
    EXPECT_STREQ(buffer_.data(), "");
  }
}

TEST_F(KeyValueCalls, GetOfAMissingFileIsNegativeWithEnoent) {
  EXPECT_LT(Get("a"), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_STREQ(buffer_.data(), "");
}

TEST_F(KeyValueCalls, GetNeverCutsAValue) {
  folder_.Write("file", "a=\"12345678\"\n");
  std::array<char, 9> fits = {};
  EXPECT_EQ(KLIBCFileGetKeyValue(path_.c_str(), "a", fits.data(), 9, 0), 8);
  for (const std::size_t size : {8UL, 2UL, 1UL}) {
    fits.fill('~');
    errno = 0;
    EXPECT_LT(KLIBCFileGetKeyValue(path_.c_str(), "a", fits.data(), size, 0), 0);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_STREQ(fits.data(), "");
    EXPECT_EQ(fits[1], '~') << "wrote behind the terminator";
  }
}

TEST_F(KeyValueCalls, GetRefusesAValueWithNulBytes) {
  folder_.Write("file", std::string("a=x\0y\n", 6));
  EXPECT_LT(Get("a"), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_STREQ(buffer_.data(), "");
}

TEST_F(KeyValueCalls, WrongArgumentsAreRefusedWithEinval) {
  char byte = '~';
  const char* path = path_.c_str();
  const std::array results = {KLIBCFileGetKeyValue(nullptr, "a", &byte, 1, 0),
                              KLIBCFileGetKeyValue(path, nullptr, &byte, 1, 0),
                              KLIBCFileGetKeyValue(path, "a b", &byte, 1, 0),
                              KLIBCFileGetKeyValue(path, "a", &byte, 1, 4),
                              KLIBCFileGetKeyValue(path, "a", nullptr, 1, 0),
                              KLIBCFileGetKeyValue(path, "a", &byte, 0, 0),
                              KLIBCFileSetKeyValue(nullptr, "a", "v", 0),
                              KLIBCFileSetKeyValue(path, "", "v", 0),
                              KLIBCFileSetKeyValue(path, "a\n", "v", 0),
                              KLIBCFileSetKeyValue(path, "a", nullptr, 0),
                              KLIBCFileSetKeyValue(path, "a", "v", 1),
                              KLIBCFileSetKeyValue("/tmp/", "a", "v", 0),
                              KLIBCFileSetKeyValue("", "a", "v", 0),
                              KLIBCFileRemoveKey(nullptr, "a"),
                              KLIBCFileRemoveKey(path, nullptr),
                              KLIBCINFOSetKeyValue(nullptr, "v")};
  for (std::size_t i = 0; i < results.size(); ++i) EXPECT_LT(results[i], 0) << i;
  errno = 0;
  EXPECT_LT(KLIBCFileSetKeyValue(path, "a=b", "v", 0), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(folder_.Names().empty());
}

TEST_F(KeyValueCalls, SetCreatesAPrivateFile) {
  EXPECT_EQ(Set("a", "1"), 1);
  EXPECT_EQ(folder_.Read("file"), "a=\"1\"\n");
  EXPECT_EQ(Mode(), 0600U);
  EXPECT_EQ(folder_.Names(), std::vector<std::string>{"file"});
}

TEST_F(KeyValueCalls, SetKeepsThePermissionsOfAFileButNotOthersToWrite) {
  folder_.Write("file", "a=1\n");
  ASSERT_EQ(chmod(path_.c_str(), 0666), 0);
  EXPECT_EQ(Set("a", "2"), 1);
  EXPECT_EQ(Mode(), 0644U);
}

TEST_F(KeyValueCalls, SetOfTheSameValueWritesNothing) {
  folder_.Write("file", "# hand-written\na='1'");
  const ino_t before = Inode();
  EXPECT_EQ(Set("a", "1"), 1);
  EXPECT_EQ(Inode(), before);
  EXPECT_EQ(folder_.Read("file"), "# hand-written\na='1'");
  EXPECT_EQ(Set("a", "2"), 1);
  EXPECT_NE(Inode(), before);
}

TEST_F(KeyValueCalls, SetOfAnEmptyValueStoresTheKey) {
  EXPECT_EQ(Set("a", ""), 1);
  EXPECT_EQ(folder_.Read("file"), "a=\"\"\n");
}

TEST_F(KeyValueCalls, SetInAMissingFolderFailsWithEnoent) {
  EXPECT_LT(KLIBCFileSetKeyValue("/tmp/no/such/folder", "a", "v", 0), 0);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(KeyValueCalls, RemoveAnswersZeroAndKeepsOtherLines) {
  folder_.Write("file", "# c\na=1\nb=2\na=3\n");
  EXPECT_EQ(KLIBCFileRemoveKey(path_.c_str(), "a"), 0);
  EXPECT_EQ(folder_.Read("file"), "# c\nb=2\n");
}

TEST_F(KeyValueCalls, RemoveOfAnAbsentKeyFileOrFolderIsMinusOneWithEnoent) {
  folder_.Write("file", "b=2\n");
  for (const std::string& path : {path_, folder_.Path("none"), std::string("/tmp/no/such")}) {
    errno = 0;
    EXPECT_EQ(KLIBCFileRemoveKey(path.c_str(), "a"), -1) << path;
    EXPECT_EQ(errno, ENOENT) << path;
  }
  EXPECT_EQ(folder_.Read("file"), "b=2\n");
  EXPECT_EQ(folder_.Names(), std::vector<std::string>{"file"});
}

TEST_F(KeyValueCalls, RemoveOfTheOnlyKeyLeavesAnEmptyFile) {
  folder_.Write("file", "a=1\n");
  EXPECT_EQ(KLIBCFileRemoveKey(path_.c_str(), "a"), 0);
  EXPECT_TRUE(KLIBCFileExist(path_.c_str()));
  EXPECT_EQ(Get("a"), 0);
}

TEST_F(KeyValueCalls, CheckIsOneOnlyForExactlyTheValue) {
  folder_.Write("file", "a=\"yes\"\nempty=\n");
  for (const int flags : {0, 1}) {
    EXPECT_EQ(KLIBCFileCheckKeyValue(path_.c_str(), "a", "yes", flags), 1);
    for (const char* other : {"ye", "yes ", "YES", "", "no"}) {
      EXPECT_EQ(KLIBCFileCheckKeyValue(path_.c_str(), "a", other, flags), 0) << other;
    }
    EXPECT_EQ(KLIBCFileCheckKeyValue(path_.c_str(), "empty", "", flags), 1);
    EXPECT_EQ(KLIBCFileCheckKeyValue(path_.c_str(), "absent", "", flags), 0);
    EXPECT_EQ(KLIBCFileCheckKeyValue(folder_.Path("none").c_str(), "a", "yes", flags), 0);
  }
  EXPECT_EQ(KLIBCFileCheckKeyValue(path_.c_str(), "a", "yes", 2), 0);
  EXPECT_EQ(KLIBCFileCheckKeyValue(path_.c_str(), "a", nullptr, 0), 0);
}

TEST_F(KeyValueCalls, InfoSetStoresInTheConfiguration) {
  EXPECT_EQ(KLIBCINFOSetKeyValue("rolling_group_id", "7"), 1);
  EXPECT_EQ(KLIBCFileCheckKeyValue("/etc/kaloinfo.conf", "rolling_group_id", "7", 0), 1);
}

TEST_F(KeyValueCalls, TheLocksOfWritersAreInAFolderOfRootOnly) {
  std::filesystem::remove_all("/run/kalo");
  EXPECT_EQ(Set("a", "1"), 1);
  struct stat status = {};
  ASSERT_EQ(stat("/run/kalo/kv", &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0700U);
}

TEST_F(KeyValueCalls, AShellThatSourcesTheFileSeesTheSameValue) {
  std::string printable;
  for (char c = ' '; c <= '~'; ++c) printable += c;
  for (const std::string& value :
       {printable, std::string("$(touch /tmp/pwned) `id` ${HOME} \\n \\\\ !x '\""),
        std::string("\xc3\xa4 \xe2\x82\xac"), std::string("back\\slash\\"), std::string("  ")}) {
    ASSERT_EQ(Set("value", value), 1);
    for (const std::string shell : {"/bin/sh", "/bin/bash"}) {
      Pipe output;
      const pid_t pid = Spawn({shell, "-c", ". \"$1\"; printf %s \"$value\"", "sh", path_},
                              {.stdout_fd = output.write_end.Get()});
      EXPECT_EQ(output.ReadAll(), value) << shell;
      EXPECT_EQ(WaitForExit(pid), 0);
    }
  }
  EXPECT_FALSE(KLIBCFileExist("/tmp/pwned"));
}

TEST_F(KeyValueCalls, PrintfOfAShellTurnsControlBytesBack) {
  const std::string value = "line 1\nline 2\ttab\x01\x1b[0m\x7f";
  ASSERT_EQ(Set("value", value), 1);
  for (const std::string shell : {"/bin/sh", "/bin/bash"}) {
    Pipe output;
    const pid_t pid = Spawn({shell, "-c", ". \"$1\"; printf %b \"$value\"", "sh", path_},
                            {.stdout_fd = output.write_end.Get()});
    EXPECT_EQ(output.ReadAll(), value) << shell;
    EXPECT_EQ(WaitForExit(pid), 0);
  }
}

}  // namespace
}  // namespace kalo::test
