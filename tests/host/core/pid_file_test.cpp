#include "host/core/pid_file.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>

#include "host/core/spawn.h"
#include "platform/core/process.h"
#include "tests/host/core/support.h"

namespace kalo::test {
namespace {

namespace fs = std::filesystem;

class PidFiles : public testing::Test {
 protected:
  int Read() const { return KLIBCReadPidFile(path_.c_str()); }

  Folder folder_;
  std::string path_ = folder_.Path("pid");
  Pipe ready_;
  Pipe go_on_;
  // Holds the file until it is told to go on.
  std::function<int()> hold_ = [this] {
    const auto file = PidFile::TryTake(path_);
    ready_.SendByte();
    go_on_.WaitForByte();
    return file ? 0 : 1;
  };
};

TEST_F(PidFiles, AMissingFileIsAnError) {
  EXPECT_LT(Read(), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_LT(KLIBCReadPidFile(nullptr), 0);
}

TEST_F(PidFiles, NamesTheProcessThatHoldsIt) {
  Child holder(hold_);
  ready_.WaitForByte();
  const int pid = Read();
  EXPECT_GT(pid, 0);
  EXPECT_EQ(std::to_string(pid) + "\n", folder_.Read("pid"));
  EXPECT_EQ(kill(pid, 0), 0);
  EXPECT_FALSE(PidFile::TryTake(path_)) << "a second one";
  EXPECT_EQ(errno, EWOULDBLOCK);
  EXPECT_EQ(Read(), pid) << "looking and trying leave it as it is";
  go_on_.SendByte();
  EXPECT_EQ(holder.Wait(), 0);
  EXPECT_FALSE(fs::exists(path_)) << "it goes with its process";
}

TEST_F(PidFiles, ADeadProcessesNumberDoesNotCount) {
  Child holder(hold_);
  ready_.WaitForByte();
  holder.Kill();
  (void)holder.Wait();
  EXPECT_TRUE(fs::exists(path_));
  EXPECT_EQ(Read(), 0);
  Child next(hold_);
  ready_.WaitForByte();
  EXPECT_GT(Read(), 0) << "the next one takes it over";
  go_on_.SendByte();
  EXPECT_EQ(next.Wait(), 0);
}

TEST_F(PidFiles, APlainFileOfAnyProgramCounts) {
  const std::string number = std::to_string(getpid());
  for (const std::string& text : {number, number + "\n", "  " + number + "\r\n"}) {
    folder_.Write("pid", text);
    EXPECT_EQ(Read(), getpid()) << text;
  }
}

// The clocks of processes and files are coarse, each in its own way.
TEST_F(PidFiles, AFileWrittenAtOnceCounts) {
  for (int i = 0; i < 30; ++i) {
    Child writer([this] {
      folder_.Write("pid", std::to_string(getpid()));
      ready_.SendByte();
      go_on_.WaitForByte();
      return 0;
    });
    ready_.WaitForByte();
    EXPECT_GT(Read(), 0);
    go_on_.SendByte();
    EXPECT_EQ(writer.Wait(), 0);
  }
}

TEST_F(PidFiles, AProcessThatGotTheNumberLaterDoesNotCount) {
  folder_.Write("pid", std::to_string(getpid()));
  ASSERT_EQ(Read(), getpid());
  const auto before = fs::file_time_type::clock::now() - std::chrono::hours(1);
  fs::last_write_time(path_, before);
  EXPECT_EQ(Read(), 0);
}

TEST_F(PidFiles, AProcessThatIsNotReapedYetDoesNotCount) {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  ASSERT_GT(child, 0);
  siginfo_t ended{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
  folder_.Write("pid", std::to_string(child));
  EXPECT_EQ(Read(), 0);
  EXPECT_EQ(WaitForExit(child), 0);
  EXPECT_EQ(Read(), 0);
}

TEST_F(PidFiles, AnOddlyNamedProcessCounts) {
  Child holder([this] {
    prctl(PR_SET_NAME, ") Z 1 (");
    folder_.Write("pid", std::to_string(getpid()));
    ready_.SendByte();
    go_on_.WaitForByte();
    return 0;
  });
  ready_.WaitForByte();
  EXPECT_GT(Read(), 0);
  go_on_.SendByte();
  EXPECT_EQ(holder.Wait(), 0);
}

TEST_F(PidFiles, OnlyANumberIsANumber) {
  for (const char* text : {"0\n", "-5\n", "x\n", "", "\n", "1 2\n", "1x", "99999999999999\n"}) {
    folder_.Write("pid", text);
    EXPECT_EQ(Read(), 0) << text;
  }
}

// Clocks that are set while it runs do not matter for a holder.
TEST_F(PidFiles, TheHolderCountsWhateverTheTimes) {
  Child holder(hold_);
  ready_.WaitForByte();
  fs::last_write_time(path_, fs::file_time_type::clock::now() - std::chrono::hours(1));
  EXPECT_GT(Read(), 0);
  folder_.Write("pid", std::to_string(getpid()));
  fs::last_write_time(path_, fs::file_time_type::clock::now() - std::chrono::hours(1));
  EXPECT_EQ(Read(), 0) << "another one's lock";
  go_on_.SendByte();
  EXPECT_EQ(holder.Wait(), 0);
}

TEST_F(PidFiles, AnotherUsersFileDoesNotCount) {
  folder_.Write("pid", std::to_string(getpid()));
  constexpr uid_t kOther = 12345;
  if (chown(path_.c_str(), kOther, kOther) != 0) GTEST_SKIP() << "one user only";
  EXPECT_EQ(Read(), 0);
}

TEST_F(PidFiles, AChildOfTheHolderDoesNotHoldIt) {
  Pipe child_ready;
  Pipe child_end;
  Child holder([&] {
    const auto file = PidFile::TryTake(path_);
    Child* child = new Child([&] {  // outlives its parent  NOLINT(cppcoreguidelines-owning-memory)
      child_ready.SendByte();
      child_end.WaitForByte();
      return 0;
    });
    child_ready.WaitForByte();
    return child != nullptr && file ? 0 : 1;
  });
  holder.Wait();
  EXPECT_LT(Read(), 0);
  child_end.SendByte();
}

TEST_F(PidFiles, WhatOthersCanWriteDoesNotCount) {
  Child holder(hold_);
  ready_.WaitForByte();
  EXPECT_GT(Read(), 0);
  ASSERT_EQ(chmod(path_.c_str(), 0620), 0);
  EXPECT_EQ(Read(), 0);
  ASSERT_EQ(chmod(path_.c_str(), 0600), 0);
  go_on_.SendByte();
  EXPECT_EQ(holder.Wait(), 0);
}

TEST_F(PidFiles, PlantedThingsAreRefused) {
  fs::create_symlink(folder_.Path("elsewhere"), path_);
  EXPECT_FALSE(PidFile::TryTake(path_));
  EXPECT_LT(Read(), 0);
  EXPECT_FALSE(fs::exists(folder_.Path("elsewhere")));
  fs::remove(path_);
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_FALSE(PidFile::TryTake(path_));
  EXPECT_LT(Read(), 0);
  fs::remove(path_);
  fs::create_directory(path_);
  EXPECT_FALSE(PidFile::TryTake(path_));
  EXPECT_LT(Read(), 0);
}

}  // namespace
}  // namespace kalo::test
