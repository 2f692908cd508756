#include "services/webapid/fork_watch.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/services/webapid/modules/failing_fork.h"

namespace kalo::webapid {
namespace {

int StatusOf(pid_t pid) {
  int status = -1;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  return status;
}

TEST(ForkWatch, SeesAForkAndCutsTheChildOff) {
  const int channel = open("/dev/null", O_RDONLY | O_CLOEXEC);
  const ForkWatch watch(channel);
  EXPECT_FALSE(watch.Forked());
  const pid_t pid = fork();
  if (pid == 0) {
    _exit(watch.InChild() && fcntl(channel, F_GETFD) < 0 ? 0 : 1);
  }
  EXPECT_EQ(StatusOf(pid), 0);
  EXPECT_TRUE(watch.Forked());
  EXPECT_FALSE(watch.InChild());
  EXPECT_GE(fcntl(channel, F_GETFD), 0);
  close(channel);
}

TEST(ForkWatch, AGrandchildKeepsWhatItsParentOpened) {
  const int channel = open("/dev/null", O_RDONLY | O_CLOEXEC);
  const ForkWatch watch(channel);
  const pid_t pid = fork();
  if (pid == 0) {
    const int again = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const pid_t grandchild = fork();
    if (grandchild == 0) _exit(again == channel && fcntl(again, F_GETFD) >= 0 ? 0 : 1);
    int status = 1;
    waitpid(grandchild, &status, 0);
    _exit(status == 0 ? 0 : 1);
  }
  EXPECT_EQ(StatusOf(pid), 0);
  close(channel);
}

TEST(ForkWatch, AForkThatFailsCountsToo) {
  const pid_t pid = fork();
  if (pid == 0) {
    const ForkWatch watch(-1);
    MakeForkFail();
    const bool failed = fork() < 0;
    _exit(failed && watch.Forked() ? 0 : 1);
  }
  EXPECT_EQ(StatusOf(pid), 0);
}

}  // namespace
}  // namespace kalo::webapid
