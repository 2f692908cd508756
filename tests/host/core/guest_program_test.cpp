#include "host/core/guest_program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <fstream>

#include "host/core/spawn.h"
#include "platform/core/key_value.h"
#include "platform/core/process.h"
#include "tests/host/core/support.h"
#include "tests/support/wait.h"

namespace kalo::test {
namespace {

constexpr std::chrono::milliseconds kShort{300};

TEST(GuestProgram, IsWhatIsNoPartOfTheSystem) {
  for (const char* path : {"/bin/tar", "/bin/rm", "/usr/kalo/sbin/kalomeshupgrade"}) {
    EXPECT_FALSE(IsGuestProgram(path)) << path;
  }
  for (const char* path : {"/tmp/patchtmp/updater", "/bin/../tmp/x", "/usr/kalo/../x", "updater",
                           "/binary", "/usr/kalox/y", "/usr/bin/env"}) {
    EXPECT_TRUE(IsGuestProgram(path)) << path;
  }
}

class Guest : public testing::Test {
 protected:
  // Runs a shell in a session of its own.
  // @return whether it came to its own end.
  bool Run(const std::string& script, const GuestLimits& limits) {
    SpawnOptions options;
    options.own_session = true;
    options.stdout_fd = pipe_.write_end.Get();
    const pid_t pid = Spawn({"/bin/sh", "-c", script}, options);
    EXPECT_GT(pid, 0);
    pipe_.write_end.Reset();
    const UniqueFd copy(::open(folder_.Path("out").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    errno = 0;
    const bool ended = WaitForGuest(pid, pipe_.read_end.Get(), copy.Get(), limits);
    error_ = errno;
    end_ = WaitForEnd(pid);
    return ended;
  }
  // Whether a process whose number the script wrote is gone.
  [[nodiscard]] bool IsGone(const std::string& file) const {
    const pid_t pid = std::stoi(folder_.Read(file));
    return WaitFor([pid] { return kill(pid, 0) != 0 && errno == ESRCH; });
  }

  Folder folder_;
  Pipe pipe_;
  ProcessEnd end_;
  int error_ = 0;
};

TEST_F(Guest, EndsByItself) {
  EXPECT_TRUE(Run("echo text; exit 7", {}));
  EXPECT_EQ(folder_.Read("out"), "text\n");
  EXPECT_EQ(end_.number, 7);
}

TEST_F(Guest, ThatHangsIsEndedWithAllItStarted) {
  EXPECT_FALSE(
      Run("sleep 1000 & echo $! >" + folder_.Path("pid") + "; echo text; wait", {.whole = kShort}));
  EXPECT_EQ(error_, ETIMEDOUT);
  EXPECT_TRUE(end_.by_signal);
  EXPECT_EQ(end_.number, SIGKILL);
  EXPECT_TRUE(IsGone("pid"));
}

TEST_F(Guest, ThatIgnoresSignalsIsEndedToo) {
  EXPECT_FALSE(Run("trap '' TERM INT HUP; while :; do sleep 1; done", {.whole = kShort}));
  EXPECT_EQ(error_, ETIMEDOUT);
}

TEST_F(Guest, LeavesNobodyBehind) {
  EXPECT_TRUE(Run("sleep 1000 >/dev/null & echo $! >" + folder_.Path("pid"), {}));
  EXPECT_TRUE(IsGone("pid"));
}

TEST_F(Guest, WhoseChildHoldsTheOutputIsWaitedForOnlySoLong) {
  EXPECT_FALSE(Run("sleep 1000 & echo $! >" + folder_.Path("pid"), {.whole = kShort}));
  EXPECT_EQ(error_, ETIMEDOUT);
  EXPECT_FALSE(end_.by_signal) << "it ended long ago";
  EXPECT_TRUE(IsGone("pid"));
}

TEST_F(Guest, MaySayOnlySoMuch) {
  EXPECT_TRUE(Run("printf 1234567890", {.output_bytes = 10}));
  EXPECT_EQ(folder_.Read("out"), "1234567890");
}

TEST_F(Guest, ThatSaysMoreIsEnded) {
  EXPECT_FALSE(Run("printf 12345678901; sleep 1000", {.output_bytes = 10}));
  EXPECT_EQ(error_, EFBIG);
}

// Through the platform's calls.
TEST(GuestCalls, AProgramThatIsNoUpdaterIsNotRun) {
  const Folder folder;
  const std::string program = folder.Path("updater");
  std::filesystem::copy_file("/bin/sh", program);
  const std::string script = "touch " + folder.Path("ran");
  EXPECT_LT(KLIBCExec(program.c_str(), "-c", script.c_str(), nullptr, nullptr), 0);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(KLIBCPopen(program.c_str(), "r", "updater", "-c", script.c_str(), nullptr), nullptr);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(folder.Names(), std::vector<std::string>{"updater"});
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST(GuestCalls, AnUpdaterIsNeverRunUnconfined) {
  const Folder folder;
  std::filesystem::create_directory("/tmp/patchtmp");
  std::filesystem::copy_file("/bin/sh", "/tmp/patchtmp/updater");
  const std::string script = "touch " + folder.Path("ran");
  EXPECT_LT(KLIBCExec("/tmp/patchtmp/updater", "-c", script.c_str(), "-l", "ger"), 0);
  std::filesystem::remove_all("/tmp/patchtmp");
  EXPECT_TRUE(folder.Names().empty()) << "there is no kalo-confine here";
  const char* report = "/run/customized_reason";
  EXPECT_EQ(KLIBCFileCheckKeyValue(report, "can_continue", "no", 1), 1);
  char text[1024] = "";
  EXPECT_GT(KLIBCFileGetKeyValue(report, "leading_note", text, sizeof text, 0), 0);
  EXPECT_STREQ(text, "Die neue Firmware konnte nicht geprüft werden");
  EXPECT_GT(KLIBCFileGetKeyValue(report, "reason", text, sizeof text, 0), 0);
  std::filesystem::remove(report);
}

}  // namespace
}  // namespace kalo::test
