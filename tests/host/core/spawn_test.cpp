#include "host/core/spawn.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/host/core/support.h"

namespace kalo::test {
namespace {

constexpr char kListDescriptors[] =
    "i=0; while [ $i -lt 64 ]; do [ -e /proc/$$/fd/$i ] && echo $i; i=$((i+1)); done; true";

std::string OutputOf(const std::vector<std::string>& argv, SpawnOptions options = {}) {
  Pipe output;
  options.stdout_fd = output.write_end.Get();
  const pid_t pid = Spawn(argv, options);
  std::string text = output.ReadAll();
  EXPECT_EQ(WaitForExit(pid), 0);
  return text;
}

TEST(Spawn, PassesArgumentsAsTheyAre) {
  EXPECT_EQ(OutputOf({"/usr/bin/printf", "[%s]", "a b", "", "$HOME; *"}), "[a b][][$HOME; *]");
}

TEST(Spawn, GivesACleanEnvironment) {
  ASSERT_EQ(setenv("LD_LIBRARY_PATH", "/tmp/evil", 1), 0);
  EXPECT_EQ(OutputOf({"/usr/bin/env"}),
            "PATH=/usr/bin:/bin:/usr/sbin:/sbin\nHOME=/root\nLANG=C.UTF-8\n");
  unsetenv("LD_LIBRARY_PATH");
}

TEST(Spawn, GivesNoDescriptorAboveTwo) {
  const UniqueFd leaky(open("/dev/null", O_RDONLY));  // NOLINT(android-cloexec-open): on purpose
  const UniqueFd high(fcntl(leaky.Get(), F_DUPFD, 50));
  EXPECT_EQ(OutputOf({"/bin/sh", "-c", kListDescriptors}), "0\n1\n2\n");
}

TEST(Spawn, PassesOneDescriptorAsThree) {
  const UniqueFd leaky(open("/dev/null", O_RDONLY));  // NOLINT(android-cloexec-open): on purpose
  const Pipe passed;
  ASSERT_EQ(write(passed.write_end.Get(), "hello\n", 6), 6);
  const SpawnOptions options = {.pass_fd = passed.read_end.Get()};
  EXPECT_EQ(OutputOf({"/bin/sh", "-c", kListDescriptors}, options), "0\n1\n2\n3\n");
  EXPECT_EQ(OutputOf({"/bin/sh", "-c", "read -r line <&3; echo $line"}, options), "hello\n");
  EXPECT_NE(fcntl(passed.read_end.Get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(Spawn, TakesDescriptorsWhoseNumbersAreEachOthersTargets) {
  const Folder folder;
  for (const char* name : {"out", "err", "three"}) folder.Write(name, "");
  Child child([&folder] {
    UniqueFd out(open(folder.Path("out").c_str(), O_WRONLY | O_CLOEXEC));
    UniqueFd err(open(folder.Path("err").c_str(), O_WRONLY | O_CLOEXEC));
    UniqueFd three(open(folder.Path("three").c_str(), O_WRONLY | O_CLOEXEC));
    if (dup2(fcntl(out.Get(), F_DUPFD, 20), 3) < 0 || dup2(fcntl(err.Get(), F_DUPFD, 20), 0) < 0 ||
        dup2(fcntl(three.Get(), F_DUPFD, 20), 1) < 0) {
      return 100;
    }
    return WaitForExit(Spawn({"/bin/sh", "-c", "echo out; echo err >&2; echo three >&3"},
                             {.stdout_fd = 3, .stderr_fd = 0, .pass_fd = 1}));
  });
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(folder.Read("out"), "out\n");
  EXPECT_EQ(folder.Read("err"), "err\n");
  EXPECT_EQ(folder.Read("three"), "three\n");
}

TEST(Spawn, StandardInputIsEmptyAndOutputDiscardedByDefault) {
  const pid_t pid = Spawn({"/bin/sh", "-c",
                           "[ \"$(readlink /proc/$$/fd/0)\" = /dev/null ] && "
                           "[ \"$(readlink /proc/$$/fd/1)\" = /dev/null ] && echo x && ! read l"});
  EXPECT_EQ(WaitForExit(pid), 0);
}

TEST(Spawn, ReadsFromAGivenDescriptor) {
  Pipe input;
  ASSERT_EQ(write(input.write_end.Get(), "text", 4), 4);
  input.write_end.Reset();
  EXPECT_EQ(OutputOf({"/bin/cat"}, {.stdin_fd = input.read_end.Get()}), "text");
}

// @return the set of signals in a line "name:\t<16 hexadecimal digits>" of /proc/<pid>/status,
// without the two that glibc keeps for itself and always ignores in what it spawns.
std::uint64_t SignalsIn(const std::string& status, const std::string& name) {
  constexpr std::uint64_t kOfGlibc = 3ULL << 31;
  const std::size_t at = status.find(name + ":");
  if (at == std::string::npos) return ~0ULL;
  return std::stoull(status.substr(at + name.size() + 1), nullptr, 16) & ~kOfGlibc;
}

TEST(Spawn, GivesDefaultSignalsAndAnEmptyMask) {
  Pipe output;
  Child child([&output] {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    for (const int number : {SIGHUP, SIGPIPE, SIGTERM, SIGRTMIN}) std::signal(number, SIG_IGN);
    return WaitForExit(
        Spawn({"/bin/cat", "/proc/self/status"}, {.stdout_fd = output.write_end.Get()}));
  });
  const std::string status = output.ReadAll();
  EXPECT_EQ(SignalsIn(status, "SigBlk"), 0U);
  EXPECT_EQ(SignalsIn(status, "SigIgn"), 0U);
  EXPECT_EQ(child.Wait(), 0);
}

TEST(Spawn, StartsASessionOnlyWhenAsked) {
  const std::string session = "cut -d' ' -f6 /proc/$$/stat";
  const std::vector<std::string> argv = {"/bin/sh", "-c", session + "; echo $$"};
  EXPECT_TRUE(OutputOf(argv).starts_with(std::to_string(getsid(0)) + "\n"));
  const std::string own = OutputOf(argv, {.own_session = true});
  EXPECT_EQ(own.substr(0, own.size() / 2), own.substr(own.size() / 2));
}

TEST(Spawn, FailsWithErrnoForWhatIsNoProgram) {
  const Folder folder;
  folder.Write("file", "");
  EXPECT_LT(Spawn({folder.Path("none")}), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_LT(Spawn({folder.Path("file")}), 0);
  EXPECT_EQ(errno, EACCES);
  EXPECT_LT(Spawn({}), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_LT(Spawn({"true"}), 0) << "PATH is never searched";
  EXPECT_EQ(errno, EINVAL);
  EXPECT_LT(Spawn({"/bin/true"}, {.stdout_fd = 999}), 0);
  EXPECT_EQ(errno, EBADF);
}

TEST(WaitForExit, TellsTheStatusOrTheSignal) {
  EXPECT_EQ(WaitForExit(Spawn({"/bin/sh", "-c", "exit 42"})), 42);
  EXPECT_EQ(WaitForExit(Spawn({"/bin/sh", "-c", "kill -TERM $$"})), 128 + SIGTERM);
}

TEST(WaitForExit, RefusesWhatIsNoChild) {
  for (const pid_t pid : {-1, 0, 1}) {
    EXPECT_EQ(WaitForExit(pid), -1);
    EXPECT_EQ(errno, ECHILD);
  }
}

}  // namespace
}  // namespace kalo::test
