#include "services/webapid/event_loop.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <string>

namespace kalo::webapid {
namespace {

using std::chrono::milliseconds;

TEST(EventLoop, RunsTimersInOrder) {
  EventLoop loop;
  std::string order;
  const auto now = EventLoop::Clock::now();
  (void)loop.At(now + milliseconds(4), [&] { loop.Stop(); });
  (void)loop.At(now + milliseconds(2), [&] { order += "b"; });
  (void)loop.At(now, [&] { order += "a"; });
  const auto cancelled = loop.At(now, [&] { order += "x"; });
  loop.Cancel(cancelled);
  loop.Run();
  EXPECT_EQ(order, "ab");
}

TEST(EventLoop, CallsForReadableDescriptorsUntilForgotten) {
  EventLoop loop;
  const UniqueFd event(eventfd(1, EFD_CLOEXEC));
  int calls = 0;
  EventLoop::WatchId id = 0;
  id = loop.Watch(event.Get(), [&] {
    if (++calls == 3) loop.Forget(id);
  });
  (void)loop.At(EventLoop::Clock::now() + milliseconds(20), [&] { loop.Stop(); });
  loop.Run();
  EXPECT_EQ(calls, 3);
}

TEST(EventLoop, AHandlerMayForgetAnotherThatIsDueInTheSameTurn) {
  EventLoop loop;
  const UniqueFd first(eventfd(1, EFD_CLOEXEC));
  const UniqueFd second(eventfd(1, EFD_CLOEXEC));
  EventLoop::WatchId one = 0;
  EventLoop::WatchId two = 0;
  int calls = 0;
  one = loop.Watch(first.Get(), [&] { ++calls, loop.Forget(one), loop.Forget(two); });
  two = loop.Watch(second.Get(), [&] { ++calls, loop.Forget(one), loop.Forget(two); });
  (void)loop.At(EventLoop::Clock::now() + milliseconds(5), [&] { loop.Stop(); });
  loop.Run();
  EXPECT_EQ(calls, 1);
}

TEST(EventLoop, TheTurnShortensTheWait) {
  EventLoop loop;
  int turns = 0;
  loop.SetTurn([&]() -> std::optional<milliseconds> {
    if (++turns == 3) loop.Stop();
    return milliseconds(1);
  });
  loop.Run();
  EXPECT_EQ(turns, 3);
}

}  // namespace
}  // namespace kalo::webapid
