// The password prompt, on a terminal of its own.

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <string_view>

#include "host/core/unique_fd.h"
#include "programs/kalo-mesh/terminal.h"
#include "tests/support/wait.h"

namespace kalo::cli {
namespace {

class PasswordPrompt : public ::testing::Test {
 protected:
  void SetUp() override {
    int terminal = -1;
    asker_ = forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_GE(asker_, 0);
    if (asker_ == 0) Ask();
    terminal_ = UniqueFd(terminal);
    ASSERT_TRUE(test::WaitFor([this] { return !HasEcho(); }));
  }
  [[noreturn]] static void Ask() {
    signal(SIGINT, SIG_DFL);
    try {
      _exit(ReadPassword("Password: ") == "secret" ? 0 : 1);
    } catch (...) {
      _exit(2);
    }
  }
  [[nodiscard]] bool HasEcho() const {
    termios settings{};
    return tcgetattr(terminal_.Get(), &settings) == 0 && (settings.c_lflag & ECHO) != 0;
  }
  // @return how the process that asked ended.
  [[nodiscard]] int WaitForEnd() const {
    int status = -1;
    EXPECT_TRUE(test::WaitFor([&] { return waitpid(asker_, &status, WNOHANG) == asker_; }));
    return status;
  }

  pid_t asker_ = -1;
  UniqueFd terminal_;
};

TEST_F(PasswordPrompt, HidesWhatIsTyped) {
  constexpr std::string_view kTyped = "secret\n";
  ASSERT_EQ(write(terminal_.Get(), kTyped.data(), kTyped.size()),
            static_cast<ssize_t>(kTyped.size()));
  EXPECT_EQ(WaitForEnd(), 0);
  EXPECT_TRUE(HasEcho());
}

TEST_F(PasswordPrompt, LeavesTheTerminalAsItWasWhenItIsEnded) {
  ASSERT_EQ(write(terminal_.Get(), "\x03", 1), 1);  // Ctrl-C
  const int status = WaitForEnd();
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGINT);
  EXPECT_TRUE(HasEcho());
}

}  // namespace
}  // namespace kalo::cli
