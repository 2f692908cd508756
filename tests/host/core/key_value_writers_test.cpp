#include <gtest/gtest.h>
#include <sys/file.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/core/file_lock.h"
#include "platform/core/key_value.h"
#include "tests/host/core/support.h"
#include "tests/support/wait.h"

namespace kalo::test {
namespace {

namespace fs = std::filesystem;

constexpr int kRounds = 300;
constexpr std::size_t kLength = 3000;

class KeyValueWriters : public testing::Test {
 protected:
  int Set(const std::string& key, const std::string& value) const {
    return KLIBCFileSetKeyValue(path_.c_str(), key.c_str(), value.c_str(), 0);
  }
  std::string Get(const std::string& key) const {
    char buffer[8192];
    if (KLIBCFileGetKeyValue(path_.c_str(), key.c_str(), buffer, sizeof buffer, 0) < 0) return "!";
    return buffer;
  }
  // Sets its key again and again, and expects that nobody else takes the value back.
  int Write(const std::string& key) const {
    for (int round = 0; round < kRounds; ++round) {
      const std::string value(kLength, static_cast<char>('a' + round % 26));
      if (Set(key, value) != 1) return 1;
      if (Get(key) != value) return 2;
    }
    return 0;
  }
  // Reads until it sees the key "done"; each value must be whole.
  int ReadWhileWritten() const {
    while (Get("done") != "yes") {
      for (const char* key : {"one", "two"}) {
        const std::string value = Get(key);
        if (value.empty()) continue;
        if (value.size() != kLength || value.find_first_not_of(value[0]) != std::string::npos)
          return 1;
      }
      if (Get("kept") != "line") return 2;
    }
    return 0;
  }

  Folder folder_;
  std::string path_ = folder_.Path("file");
};

TEST_F(KeyValueWriters, TwoProcessesLoseNothingAndReadersSeeWholeFiles) {
  folder_.Write("file", "# comment\nkept=line\n");
  Child reader([this] { return ReadWhileWritten(); });
  Child other_reader([this] { return ReadWhileWritten(); });
  Child one([this] { return Write("one"); });
  Child two([this] { return Write("two"); });
  EXPECT_EQ(one.Wait(), 0);
  EXPECT_EQ(two.Wait(), 0);
  EXPECT_EQ(Set("done", "yes"), 1);
  EXPECT_EQ(reader.Wait(), 0);
  EXPECT_EQ(other_reader.Wait(), 0);
  EXPECT_TRUE(folder_.Read("file").starts_with("# comment\nkept=line\n"));
  EXPECT_EQ(folder_.Names(), std::vector<std::string>{"file"});
}

TEST_F(KeyValueWriters, ThreadsLoseNothing) {
  std::atomic<int> failures = 0;
  {
    std::vector<std::jthread> threads;
    for (const std::string key : {"one", "two", "three"}) {
      threads.emplace_back([&failures, this, key] { failures += Write(key); });
    }
  }
  EXPECT_EQ(failures, 0);
}

TEST_F(KeyValueWriters, AKilledWriterLeavesTheOldOrTheNewFileAndNoLock) {
  const std::string old(kLength, 'o');
  const std::string young(kLength, 'y');
  ASSERT_EQ(Set("a", old), 1);
  for (int round = 0; round < 40; ++round) {
    Child writer([&] {
      while (Set("a", young) == 1 && Set("a", old) == 1) {
      }
      return 1;
    });
    const std::string before = Get("a");
    ASSERT_TRUE(WaitFor([&] { return Get("a") != before; }));
    writer.Kill();
    const std::string found = Get("a");
    ASSERT_TRUE(found == old || found == young);
    ASSERT_EQ(Set("b", std::to_string(round)), 1);
  }
}

TEST_F(KeyValueWriters, AWriterGivesUpOnABusyLockAfterABoundedTime) {
  fs::remove_all("/run/kalo/kv");
  ASSERT_EQ(Set("a", "1"), 1);
  std::vector<std::unique_ptr<FileLock>> locks;
  for (const auto& entry : fs::directory_iterator("/run/kalo/kv")) {
    locks.push_back(std::make_unique<FileLock>(*FileLock::TryTake(entry.path())));
  }
  ASSERT_EQ(locks.size(), 1U);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_LT(Set("a", "2"), 0);
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
  EXPECT_EQ(Get("a"), "1") << "readers take no lock";
  locks.clear();
  EXPECT_EQ(Set("a", "2"), 1);
}

TEST_F(KeyValueWriters, EverySpellingOfAPathMeansOneLock) {
  fs::remove_all("/run/kalo/kv");
  fs::create_directory("/run/spelling");
  for (const char* path : {"/run/spelling/f", "/var/run/spelling/f", "/run//spelling/./f"}) {
    EXPECT_EQ(KLIBCFileSetKeyValue(path, "a", path, 0), 1);
  }
  EXPECT_EQ(std::distance(fs::directory_iterator("/run/kalo/kv"), {}), 1);
}

TEST_F(KeyValueWriters, AFullDiskLeavesTheOldFile) {
  const SmallTmpfs disk(folder_.Path());
  ASSERT_EQ(Set("a", "old"), 1);
  disk.Fill();
  EXPECT_LT(Set("a", std::string(8000, 'n')), 0);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(KLIBCFileRemoveKey(path_.c_str(), "none"), -1);
  EXPECT_EQ(folder_.Read("file"), "a=\"old\"\n");
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"file", "filler"}));
}

// A step without its percentage would block every request that reads the file.
TEST_F(KeyValueWriters, ASmallFileTakesFurtherValuesInAFullTmpfs) {
  const SmallTmpfs disk(folder_.Path());
  ASSERT_EQ(Set("step", "downloading"), 1);
  disk.Fill();
  for (const char* percent : {"0", "100", "5"}) {
    EXPECT_EQ(Set("percent", percent), 1);
    EXPECT_EQ(Get("percent"), percent);
    EXPECT_EQ(folder_.Read("file"),
              "step=\"downloading\"\npercent=\"" + std::string(percent) + "\"\n");
  }
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"file", "filler"}));
}

TEST_F(KeyValueWriters, AFileWithASecondNameIsNotOverwritten) {
  const SmallTmpfs disk(folder_.Path());
  ASSERT_EQ(Set("a", "old"), 1);
  fs::create_hard_link(folder_.Path("file"), folder_.Path("other"));
  disk.Fill();
  EXPECT_LT(Set("a", "new"), 0);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(folder_.Read("other"), "a=\"old\"\n");
}

TEST_F(KeyValueWriters, AReadOnlyFolderLeavesTheOldFile) {
  const SmallTmpfs disk(folder_.Path());
  ASSERT_EQ(Set("a", "old"), 1);
  disk.MakeReadOnly();
  EXPECT_LT(Set("a", "new"), 0);
  EXPECT_EQ(errno, EROFS);
  EXPECT_EQ(Set("a", "old"), 1) << "nothing is to be written";
  EXPECT_EQ(KLIBCFileRemoveKey(path_.c_str(), "a"), -1);
  EXPECT_EQ(errno, EROFS);
  EXPECT_EQ(folder_.Read("file"), "a=\"old\"\n");
}

TEST_F(KeyValueWriters, NoDescriptorIsLeftOpen) {
  const auto count = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
  const auto before = count();
  ASSERT_EQ(Set("a", "1"), 1);
  EXPECT_EQ(Set("a", "1"), 1);
  EXPECT_EQ(Get("a"), "1");
  EXPECT_LT(Set("a", std::string(9000, 'x')), 0);
  EXPECT_EQ(KLIBCFileRemoveKey(path_.c_str(), "a"), 0);
  EXPECT_EQ(KLIBCFileRemoveKey(path_.c_str(), "a"), -1);
  EXPECT_EQ(count(), before);
}

}  // namespace
}  // namespace kalo::test
