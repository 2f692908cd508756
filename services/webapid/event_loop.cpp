#include "services/webapid/event_loop.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <system_error>
#include <utility>

namespace kalo::webapid {
namespace {

constexpr int kEventsPerTurn = 64;
constexpr std::chrono::milliseconds kLongestWait{60000};

[[noreturn]] void Throw(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

EventLoop::EventLoop() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (!epoll_) Throw("epoll_create1");
}

EventLoop::WatchId EventLoop::Watch(int fd, Handler handler) {
  const WatchId id = ++last_number_;
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = id;
  if (epoll_ctl(epoll_.Get(), EPOLL_CTL_ADD, fd, &event) != 0) Throw("epoll_ctl");
  watched_.emplace(id, Watched{fd, std::move(handler)});
  return id;
}

void EventLoop::Forget(WatchId id) {
  const auto watched = watched_.find(id);
  if (watched == watched_.end()) return;
  epoll_ctl(epoll_.Get(), EPOLL_CTL_DEL, watched->second.fd, nullptr);
  watched_.erase(watched);
}

EventLoop::TimerId EventLoop::At(Clock::time_point when, Handler handler) {
  const TimerId id{when, ++last_number_};
  timers_.emplace(id, std::move(handler));
  return id;
}

void EventLoop::Cancel(const TimerId& id) {
  timers_.erase(id);
}

void EventLoop::SetTurn(std::function<std::optional<std::chrono::milliseconds>()> turn) {
  turn_ = std::move(turn);
}

int EventLoop::WaitMilliseconds() const {
  auto wait = longest_wait_ ? std::min(*longest_wait_, kLongestWait) : kLongestWait;
  if (!timers_.empty()) {
    const auto left = timers_.begin()->first.when - Clock::now();
    wait = std::min(wait, std::chrono::ceil<std::chrono::milliseconds>(left));
  }
  return static_cast<int>(std::max(wait, std::chrono::milliseconds(0)).count());
}

void EventLoop::Wait() {
  std::array<epoll_event, kEventsPerTurn> events{};
  const int count = epoll_wait(epoll_.Get(), events.data(), kEventsPerTurn, WaitMilliseconds());
  if (count < 0 && errno != EINTR) Throw("epoll_wait");
  for (int i = 0; i < count; ++i) {
    // An earlier handler of this turn may have removed this one; numbers are never used twice.
    const WatchId id = events[static_cast<std::size_t>(i)].data.u64;  // not aligned there
    const auto watched = watched_.find(id);
    if (watched == watched_.end()) continue;
    const Handler handler = watched->second.handler;
    handler();
  }
}

void EventLoop::RunTimers() {
  const Clock::time_point now = Clock::now();
  while (!timers_.empty() && timers_.begin()->first.when <= now) {
    const auto due = timers_.extract(timers_.begin());
    due.mapped()();
  }
}

void EventLoop::Run() {
  running_ = true;
  if (turn_) longest_wait_ = turn_();
  while (running_) {
    Wait();
    RunTimers();
    if (turn_) longest_wait_ = turn_();
  }
}

}  // namespace kalo::webapid
