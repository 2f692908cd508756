#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <utility>

#include "platform/core/process.h"
#include "tests/host/core/support.h"

namespace kalo::test {
namespace {

constexpr int kFlags = 187;

int Shell(const std::string& script) {
  return KLIBCExecl("/bin/sh", kFlags, "-c", script.c_str(), nullptr);
}

TEST(ProgramCalls, GiveTheExitStatus) {
  for (int status = 0; status <= 255; ++status) {
    const std::string script = "exit " + std::to_string(status);
    EXPECT_EQ(Shell(script), status);
    EXPECT_EQ(KLIBCExec("/bin/sh", "-c", script.c_str(), nullptr, nullptr), status);
  }
}

// Negative would mean that the program did not run at all.
TEST(ProgramCalls, ADeathBySignalIsAStatus) {
  EXPECT_EQ(Shell("kill -9 $$"), 128 + SIGKILL);
  EXPECT_EQ(KLIBCExec("/bin/sh", "-c", "kill -15 $$", nullptr, nullptr), 128 + SIGTERM);
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

template <std::size_t... I>
int WithArguments(std::index_sequence<I...> /*count*/) {
  return KLIBCExecl("/bin/true", kFlags, ((void)I, "x")..., nullptr);
}

TEST(ProgramCalls, TakeSixtyFourWordsAndNoMore) {
  EXPECT_EQ(WithArguments(std::make_index_sequence<63>()), 0);
  errno = 0;
  EXPECT_LT(WithArguments(std::make_index_sequence<64>()), 0);
  EXPECT_EQ(errno, E2BIG);
}

// Puts a descriptor in the place of another one while it lives.
class Redirected {
 public:
  Redirected(int target, const UniqueFd& source)
      : target_(target), kept_(fcntl(target, F_DUPFD_CLOEXEC, 10)) {
    EXPECT_GE(dup2(source.Get(), target_), 0);
  }
  Redirected(const Redirected&) = delete;
  Redirected& operator=(const Redirected&) = delete;
  ~Redirected() { dup2(kept_.Get(), target_); }

 private:
  int target_;
  UniqueFd kept_;
};

TEST(ProgramCalls, DiscardWhatTheProgramSays) {
  for (const int target : {STDOUT_FILENO, STDERR_FILENO}) {
    Pipe output;
    {
      const Redirected redirected(target, output.write_end);
      EXPECT_EQ(Shell("echo out; echo err >&2"), 0);
      EXPECT_EQ(KLIBCExec("/bin/sh", "-c", "echo out; echo err >&2", nullptr, nullptr), 0);
    }
    EXPECT_EQ(output.ReadAll(), "") << target;
  }
}

TEST(ProgramCalls, GiveTheProgramNothingOfTheCallers) {
  const Folder folder;
  const UniqueFd leaky(open("/dev/null", O_RDONLY));  // NOLINT(android-cloexec-open): on purpose
  ASSERT_EQ(setenv("LD_LIBRARY_PATH", "/tmp/evil", 1), 0);
  const std::string script = R"(tr '\0' '\n' </proc/$$/environ >"$0"
    for i in 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15; do
      [ -e /proc/$$/fd/$i ] && echo $i; done >>"$0"; ! read -r line)";
  const std::string path = folder.Path("out");
  EXPECT_EQ(KLIBCExecl("/bin/sh", kFlags, "-c", script.c_str(), path.c_str(), nullptr), 0);
  EXPECT_EQ(unsetenv("LD_LIBRARY_PATH"), 0);
  // Ten and above are the shell's own: it keeps there what it redirects.
  const std::string expected =
      "PATH=/usr/bin:/bin:/usr/sbin:/sbin\nHOME=/root\nLANG=C.UTF-8\n0\n1\n2\n";
  EXPECT_TRUE(folder.Read("out").starts_with(expected)) << folder.Read("out");
  EXPECT_EQ(folder.Read("out").find("\n3\n"), std::string::npos);
}

std::ptrdiff_t OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(ProgramCalls, LeaveNoZombieAndNoDescriptor) {
  const std::ptrdiff_t before = OpenDescriptors();
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(Shell("exit 3"), 3);
    EXPECT_LT(KLIBCExecl("/no/such/program", kFlags, nullptr), 0);
  }
  EXPECT_EQ(OpenDescriptors(), before);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a zombie is left";
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace
}  // namespace kalo::test
