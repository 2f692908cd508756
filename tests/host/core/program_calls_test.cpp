#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>

#include "platform/core/process.h"
#include "tests/host/core/support.h"

namespace kalo::test {
namespace {

constexpr int kFlags = 187;

int Shell(const std::string& script) {
  return KLIBCExecl("/bin/sh", kFlags, "-c", script.c_str(), nullptr);
}

TEST(ProgramCalls, GiveTheExitStatus) {
  for (const int status : {0, 1, 2, 127, 130, 187, 255}) {
    EXPECT_EQ(Shell("exit " + std::to_string(status)), status);
    EXPECT_EQ(
        KLIBCExec("/bin/sh", "-c", ("exit " + std::to_string(status)).c_str(), nullptr, nullptr),
        status);
  }
}

TEST(ProgramCalls, ADeathBySignalIsAFailure) {
  EXPECT_LT(Shell("kill -9 $$"), 0);
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_LT(KLIBCExec("/bin/sh", "-c", "kill -15 $$", nullptr, nullptr), 0);
}

TEST(ProgramCalls, AProgramThatCannotBeRunIsAFailure) {
  EXPECT_LT(KLIBCExecl("/no/such/program", kFlags, nullptr), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_LT(KLIBCExec("/etc/passwd", nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(errno, EACCES);
  EXPECT_LT(KLIBCExec("sh", nullptr, nullptr, nullptr, nullptr), 0) << "nobody searches a path";
}

TEST(ProgramCalls, RefuseWhatTheyDoNotKnow) {
  EXPECT_LT(KLIBCExecl(nullptr, kFlags, nullptr), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_LT(KLIBCExecl("/bin/true", 0, nullptr), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_LT(KLIBCExec(nullptr, nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(errno, EINVAL);
}

TEST(ProgramCalls, PassArgumentsAsTheyAre) {
  const Folder folder;
  const std::string path = folder.Path("out");
  EXPECT_EQ(KLIBCExecl("/bin/sh", kFlags, "-c", R"(printf '[%s]' "$@" >"$0")", path.c_str(), "a b",
                       "", "'\"$HOME`;\n*", nullptr),
            0);
  EXPECT_EQ(folder.Read("out"), "[a b][]['\"$HOME`;\n*]");
  EXPECT_EQ(KLIBCExec("/bin/sh", "-c", R"(printf '[%s]' "$@" >"$0")", path.c_str(), "x y"), 0);
  EXPECT_EQ(folder.Read("out"), "[x y]");
}

TEST(ProgramCalls, TheFirstNullEndsTheArguments) {
  const Folder folder;
  const std::string path = folder.Path("out");
  const std::string script = R"(echo "$#" >)" + path;
  EXPECT_EQ(KLIBCExec("/bin/sh", "-c", script.c_str(), nullptr, "ignored"), 0);
  EXPECT_EQ(folder.Read("out"), "0\n");
}

TEST(ProgramCalls, DiscardWhatTheProgramSays) {
  Pipe output;
  const UniqueFd kept(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 10));
  ASSERT_GE(dup2(output.write_end.Get(), STDOUT_FILENO), 0);
  EXPECT_EQ(Shell("echo out; echo err >&2"), 0);
  ASSERT_GE(dup2(kept.Get(), STDOUT_FILENO), 0);
  EXPECT_EQ(output.ReadAll(), "");
}

TEST(ProgramCalls, WorkWhileTheCallersChildrenAreNotWaitedFor) {
  signal(SIGCHLD, SIG_DFL);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(Shell("exit 3"), 3);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a zombie is left";
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace
}  // namespace kalo::test
