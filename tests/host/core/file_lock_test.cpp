#include "host/core/file_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>

#include "host/core/spawn.h"
#include "platform/core/file.h"
#include "platform/core/process.h"
#include "tests/host/core/support.h"
#include "tests/support/wait.h"

namespace kalo::test {
namespace {

class Locks : public testing::Test {
 protected:
  [[nodiscard]] bool IsFree() const { return FileLock::TryTake(path_).has_value(); }

  Folder folder_;
  std::string path_ = folder_.Path("lock");
};

TEST_F(Locks, TheFirstTakesItAndTheSecondSeesItBusy) {
  int fd = -1;
  EXPECT_EQ(KLIBCFileLockByFile(path_.c_str(), 1, &fd), 1);
  EXPECT_GE(fd, 0);
  int second = -1;
  EXPECT_EQ(KLIBCFileLockByFile(path_.c_str(), 1, &second), 0);
  EXPECT_EQ(errno, EWOULDBLOCK);
  EXPECT_EQ(second, -1);
  EXPECT_FALSE(IsFree());
  EXPECT_EQ(KLIBCFileUnlockByFile(fd), 0);
  EXPECT_TRUE(IsFree());
}

TEST_F(Locks, TheFileIsPrivateAndNeverRemoved) {
  { const auto lock = FileLock::TryTake(path_); }
  struct stat status = {};
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(Locks, UnlockingNothingIsHarmless) {
  EXPECT_EQ(KLIBCFileUnlockByFile(-1), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(Locks, WrongArgumentsAreRefused) {
  int fd = -1;
  EXPECT_EQ(KLIBCFileLockByFile(nullptr, 1, &fd), 0);
  EXPECT_EQ(KLIBCFileLockByFile(path_.c_str(), 1, nullptr), 0);
  EXPECT_EQ(KLIBCFileLockByFile(path_.c_str(), 0, &fd), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(KLIBCFileLockByFile("/tmp/no/such/lock", 1, &fd), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(fd, -1);
}

TEST_F(Locks, PlantedThingsAreRefused) {
  std::filesystem::create_symlink("target", folder_.Path("link"));
  EXPECT_FALSE(FileLock::TryTake(folder_.Path("link")));
  EXPECT_EQ(errno, ELOOP);
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("target")));
  ASSERT_EQ(mkfifo(folder_.Path("fifo").c_str(), 0600), 0);
  EXPECT_FALSE(FileLock::TryTake(folder_.Path("fifo")));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_FALSE(FileLock::TryTake(folder_.Path()));
  EXPECT_EQ(errno, EISDIR);
}

TEST_F(Locks, AnotherUsersFileIsRefused) {
  folder_.Write("lock", "");
  if (chown(path_.c_str(), 1234, 1234) != 0) GTEST_SKIP() << "this root has one user only";
  EXPECT_FALSE(FileLock::TryTake(path_));
  EXPECT_EQ(errno, EACCES);
}

TEST_F(Locks, AForkedChildSharesTheLockUntilItEnds) {
  auto lock = FileLock::TryTake(path_);
  ASSERT_TRUE(lock);
  Child child([] { return pause(); });
  close(lock->Release());  // as a parent that ends without unlocking
  EXPECT_FALSE(IsFree());
  child.Kill();
  EXPECT_TRUE(IsFree());
}

TEST_F(Locks, AKilledParentLeavesTheLockToItsChild) {
  Pipe locked;
  Pipe end;
  Child parent([&] {
    int fd = -1;
    if (KLIBCFileLockByFile(path_.c_str(), 1, &fd) != 1) return 1;
    const int pid = KLIBCProcFork(0);
    if (pid == 0) {
      locked.SendByte();
      end.write_end.Reset();
      end.WaitForByte();
      _exit(0);
    }
    return pid < 0 ? 2 : pause();
  });
  locked.WaitForByte();
  parent.Kill();
  EXPECT_FALSE(IsFree());
  end.write_end.Reset();
  EXPECT_TRUE(WaitFor([this] { return IsFree(); }));
}

TEST_F(Locks, AKilledHolderFreesIt) {
  Pipe locked;
  Child holder([&] {
    int fd = -1;
    if (KLIBCFileLockByFile(path_.c_str(), 1, &fd) != 1) return 1;
    locked.SendByte();
    return pause();
  });
  locked.WaitForByte();
  EXPECT_FALSE(IsFree());
  holder.Kill();
  EXPECT_TRUE(IsFree());
}

TEST_F(Locks, UnlockingInTheChildFreesItForBoth) {
  int fd = -1;
  ASSERT_EQ(KLIBCFileLockByFile(path_.c_str(), 1, &fd), 1);
  Child child([fd] { return KLIBCFileUnlockByFile(fd); });
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_TRUE(IsFree()) << "the parent's descriptor is still open";
  EXPECT_EQ(KLIBCFileUnlockByFile(fd), 0);
}

TEST_F(Locks, EndingALockObjectFreesItThoughAChildSharesIt) {
  auto lock = FileLock::TryTake(path_);
  ASSERT_TRUE(lock);
  const Child child([] { return pause(); });
  lock.reset();
  EXPECT_TRUE(IsFree());
}

TEST_F(Locks, AssigningOverALockFreesItThoughAChildSharesIt) {
  auto lock = FileLock::TryTake(path_);
  ASSERT_TRUE(lock);
  const Child child([] { return pause(); });
  *lock = *FileLock::TryTake(folder_.Path("other"));
  EXPECT_TRUE(IsFree());
  EXPECT_FALSE(FileLock::TryTake(folder_.Path("other")));
}

TEST_F(Locks, NoProgramInheritsTheDescriptor) {
  const auto lock = FileLock::TryTake(path_);
  ASSERT_TRUE(lock);
  EXPECT_NE(fcntl(lock->Fd(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(Locks, APatientTakerGetsItWhenItIsFreed) {
  Pipe locked;
  Pipe freed;
  Child holder([&] {
    const auto lock = FileLock::TryTake(path_);
    locked.SendByte();
    freed.write_end.Reset();
    freed.WaitForByte();
    return lock ? 0 : 1;
  });
  locked.WaitForByte();
  EXPECT_FALSE(FileLock::TakeWithin(path_, std::chrono::milliseconds(30)));
  EXPECT_EQ(errno, ETIMEDOUT);
  freed.write_end.Reset();
  EXPECT_TRUE(FileLock::TakeWithin(path_, std::chrono::seconds(10)));
}

}  // namespace
}  // namespace kalo::test
