#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

#include "host/core/spawn.h"
#include "platform/core/process.h"
#include "tests/host/core/support.h"

namespace kalo::test {
namespace {

TEST(ProcFork, GivesZeroToTheChildAndItsIdToTheParent) {
  Pipe pipe;
  const pid_t parent = getpid();
  const int pid = KLIBCProcFork(0);
  if (pid == 0) {
    const std::string line = std::to_string(getpid()) + " " + std::to_string(getppid());
    _exit(write(pipe.write_end.Get(), line.data(), line.size()) > 0 ? 7 : 1);
  }
  ASSERT_GT(pid, 0);
  EXPECT_EQ(pipe.ReadAll(), std::to_string(pid) + " " + std::to_string(parent));
  EXPECT_EQ(WaitForExit(pid), 7);
}

TEST(ProcFork, WritesBufferedOutputOnce) {
  const Folder folder;
  {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
        std::fopen(folder.Path("file").c_str(), "we"), &std::fclose);
    ASSERT_GE(std::fputs("once", file.get()), 0);
    const int pid = KLIBCProcFork(0);
    if (pid == 0) {
      std::fflush(nullptr);
      _exit(0);
    }
    EXPECT_EQ(WaitForExit(pid), 0);
  }
  EXPECT_EQ(folder.Read("file"), "once");
}

TEST(ProcFork, RunsTheHandlersOfAFork) {
  Child child([] {
    static bool told = false;
    pthread_atfork(nullptr, nullptr, [] { told = true; });
    const int pid = KLIBCProcFork(0);
    if (pid == 0) _exit(told ? 0 : 1);
    return WaitForExit(pid);
  });
  EXPECT_EQ(child.Wait(), 0);
}

TEST(ProcFork, RefusesUnknownFlags) {
  EXPECT_LT(KLIBCProcFork(1), 0);
  EXPECT_EQ(errno, EINVAL);
}

}  // namespace
}  // namespace kalo::test
