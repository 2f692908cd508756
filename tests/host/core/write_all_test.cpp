#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "host/core/file_io.h"
#include "tests/host/core/support.h"

namespace kalo::test {
namespace {

constexpr int kEnough = 3;
int signals = 0;
int told_after_signals = -1;

// Lets the reader begin when the writer was interrupted often enough.
void OnAlarm(int /*signal*/) {
  if (++signals == kEnough) (void)!write(told_after_signals, "x", 1);
}

/// A signal every millisecond, which no call goes on after by itself.
class Alarms {
 public:
  Alarms() {
    struct sigaction action {};
    action.sa_handler = OnAlarm;
    sigaction(SIGALRM, &action, &old_);
    const itimerval often = {{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &often, nullptr);
  }
  Alarms(const Alarms&) = delete;
  Alarms& operator=(const Alarms&) = delete;
  ~Alarms() {
    const itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &old_, nullptr);
  }

 private:
  struct sigaction old_ {};
};

TEST(WriteAll, GoesOnAfterSignalsAndPieces) {
  const std::string text(std::size_t{1} << 20, 'x');  // more than a pipe holds
  Pipe pipe;
  Pipe begin;
  signals = 0;
  told_after_signals = begin.write_end.Get();
  Child reader([&] {
    begin.WaitForByte();
    return pipe.ReadAll() == text ? 0 : 1;
  });
  {
    const Alarms alarms;
    EXPECT_TRUE(WriteAll(pipe.write_end.Get(), text));
  }
  EXPECT_GE(signals, kEnough);
  pipe.write_end.Reset();
  EXPECT_EQ(reader.Wait(), 0);
}

TEST(WriteAll, TellsWhyItFailed) {
  const UniqueFd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  EXPECT_FALSE(WriteAll(full.Get(), "x"));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_TRUE(WriteAll(full.Get(), ""));
}

}  // namespace
}  // namespace kalo::test
