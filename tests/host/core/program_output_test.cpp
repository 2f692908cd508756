#include "host/core/program_output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>

#include "platform/core/process.h"
#include "tests/host/core/support.h"

namespace kalo::test {
namespace {

struct Said {
  std::string text;
  int status = -1;
};

std::string ReadAll(std::FILE* stream) {
  std::string text;
  std::array<char, 100> piece{};
  while (fgets(piece.data(), piece.size(), stream) != nullptr) text += piece.data();
  return text;
}

Said Shell(const std::string& script) {
  std::FILE* stream = KLIBCPopen("/bin/sh", "r", "sh", "-c", script.c_str(), nullptr);
  EXPECT_NE(stream, nullptr);
  Said said;
  said.text = ReadAll(stream);
  said.status = KLIBCPclose(stream);
  return said;
}

TEST(ProgramOutput, IsReadAsItComes) {
  const Said said = Shell("echo one; printf two; echo err >&2; exit 3");
  EXPECT_EQ(said.text, "one\ntwo");
  EXPECT_EQ(said.status, 3);
}

TEST(ProgramOutput, EveryExitStatusAndADeathAreTold) {
  for (const int status : {0, 1, 2, 127, 255}) {
    EXPECT_EQ(Shell("exit " + std::to_string(status)).status, status);
  }
  EXPECT_EQ(Shell("kill -9 $$").status, 128 + SIGKILL);
}

TEST(ProgramOutput, TheProgramSeesTheGivenNameAndWords) {
  std::FILE* stream = KLIBCPopen("/bin/sh", "r", "updater", "-c",
                                 "cat /proc/$$/cmdline | tr '\\0' '|'", "a b", "", "*", nullptr);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadAll(stream), "updater|-c|cat /proc/$$/cmdline | tr '\\0' '|'|a b||*|");
  EXPECT_EQ(KLIBCPclose(stream), 0);
}

TEST(ProgramOutput, WhatCannotBeStartedHasNoStream) {
  errno = 0;
  EXPECT_EQ(KLIBCPopen("/bin/nothing", "r", "nothing", nullptr), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(KLIBCPopen("/bin/sh", "w", "sh", nullptr), nullptr);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(KLIBCPopen("/bin/sh", "r", nullptr), nullptr);
  EXPECT_EQ(KLIBCPopen(nullptr, "r", "sh", nullptr), nullptr);
  EXPECT_LT(KLIBCPclose(nullptr), 0);
}

TEST(ProgramOutput, AReaderWhoLeavesEarlyEndsTheProgram) {
  std::FILE* stream = KLIBCPopen("/bin/sh", "r", "sh", "-c", "while echo y; do :; done", nullptr);
  ASSERT_NE(stream, nullptr);
  std::array<char, 10> piece{};
  EXPECT_NE(fgets(piece.data(), piece.size(), stream), nullptr);
  (void)KLIBCPclose(stream);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a zombie is left";
}

TEST(ProgramOutput, TwoAtATimeAreTwo) {
  std::FILE* one = KLIBCPopen("/bin/sh", "r", "sh", "-c", "echo one; exit 1", nullptr);
  std::FILE* two = KLIBCPopen("/bin/sh", "r", "sh", "-c", "echo two; exit 2", nullptr);
  EXPECT_EQ(ReadAll(two), "two\n");
  EXPECT_EQ(KLIBCPclose(two), 2);
  EXPECT_EQ(ReadAll(one), "one\n");
  EXPECT_EQ(KLIBCPclose(one), 1);
}

}  // namespace
}  // namespace kalo::test
