#include "host/core/pid_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

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

TEST_F(PidFiles, ANumberThatAnybodyWroteDoesNotCount) {
  for (const std::string& text : {std::to_string(getpid()), std::string("1\n"), std::string("")}) {
    folder_.Write("pid", text);
    EXPECT_EQ(Read(), 0) << text;
  }
}

TEST_F(PidFiles, TheNumberMustBeTheHolders) {
  Child holder(hold_);
  ready_.WaitForByte();
  for (const char* text : {"1\n", "0\n", "-5\n", "x\n", "", "12 34\n", "99999999999999\n"}) {
    folder_.Write("pid", text);
    EXPECT_EQ(Read(), 0) << text;
  }
  go_on_.SendByte();
  EXPECT_EQ(holder.Wait(), 0);
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
