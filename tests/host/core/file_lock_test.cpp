#include "host/core/file_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

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

// Where others may add files: /tmp/lock on a device that leaves it open to everyone.
class SharedLocks : public Locks {
 protected:
  static constexpr uid_t kStranger = 1234;

  SharedLocks() {
    std::filesystem::permissions(folder_.Path(),
                                 std::filesystem::perms::all | std::filesystem::perms::sticky_bit);
  }
  [[nodiscard]] bool GiveAway() const { return lchown(path_.c_str(), kStranger, kStranger) == 0; }
  void ExpectReplaced() const {
    const auto lock = FileLock::TryTake(path_);
    EXPECT_TRUE(lock) << errno;
    struct stat status = {};
    ASSERT_EQ(lstat(path_.c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(status.st_uid, geteuid());
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_FALSE(IsFree()) << "the file at the path is the one that is locked";
  }
};

TEST_F(SharedLocks, WorkAsInAFolderOfOurs) {
  ExpectReplaced();
  EXPECT_TRUE(IsFree());
  EXPECT_EQ(folder_.Names(), std::vector<std::string>{"lock"});
}

TEST_F(SharedLocks, AnotherUsersLockedFileIsReplaced) {
  folder_.Write("lock", "");
  const UniqueFd held(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(held.Get(), LOCK_EX), 0);
  if (!GiveAway()) GTEST_SKIP() << "this root has one user only";
  ExpectReplaced();
}

TEST_F(SharedLocks, AnotherUsersLinkOrFolderIsReplaced) {
  folder_.Write("target", "theirs");
  std::filesystem::create_symlink("target", path_);
  if (!GiveAway()) GTEST_SKIP() << "this root has one user only";
  ExpectReplaced();
  EXPECT_EQ(folder_.Read("target"), "theirs");
  std::filesystem::remove(path_);
  std::filesystem::create_directories(path_ + "/deep/er");
  ASSERT_TRUE(GiveAway());
  ExpectReplaced();
}

TEST_F(SharedLocks, ASecondNameOfAFileOfOursIsReplaced) {
  folder_.Write("state", "ours");
  std::filesystem::create_hard_link(folder_.Path("state"), path_);
  ExpectReplaced();
  EXPECT_EQ(folder_.Read("state"), "ours");
}

TEST_F(SharedLocks, AHeldLockOfOursIsObeyed) {
  const auto lock = FileLock::TryTake(path_);
  EXPECT_FALSE(IsFree());
  EXPECT_EQ(errno, EWOULDBLOCK);
}

TEST_F(SharedLocks, AreRefusedWhereOthersMayReplaceThem) {
  std::filesystem::permissions(folder_.Path(), std::filesystem::perms::all);
  EXPECT_FALSE(IsFree());
  EXPECT_EQ(errno, EPERM);
}

// While a stranger plants his file again and again, never two of ours hold the lock.
TEST_F(SharedLocks, AreHeldByOneWhateverIsPlanted) {
  folder_.Write("lock", "");
  if (!GiveAway()) GTEST_SKIP() << "this root has one user only";
  const Child planter([this] {
    if (setgid(kStranger) != 0 || setuid(kStranger) != 0) return 1;
    while (true) {
      close(open(path_.c_str(), O_CREAT | O_EXCL | O_CLOEXEC, 0666));
      unlink(path_.c_str());
    }
  });
  for (int i = 0; i < 200; ++i) {
    const auto lock = FileLock::TryTake(path_);
    ASSERT_TRUE(lock) << errno;
    ASSERT_FALSE(IsFree());
    std::filesystem::remove(path_);
  }
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
