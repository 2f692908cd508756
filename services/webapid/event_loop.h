#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <tuple>

#include "host/core/unique_fd.h"

namespace kalo::webapid {

/// One thread's loop over descriptors and points in time. Handlers may add and remove anything,
/// themselves included.
class EventLoop {
 public:
  using Clock = std::chrono::steady_clock;
  using Handler = std::function<void()>;

  /// A descriptor under watch or a pending timer; 0 is neither.
  using WatchId = std::uint64_t;
  struct TimerId {
    Clock::time_point when;
    std::uint64_t number = 0;
    bool operator<(const TimerId& other) const {
      return std::tie(when, number) < std::tie(other.when, other.number);
    }
  };

  /// @throws std::system_error
  EventLoop();

  /// Calls the handler whenever the descriptor is readable or hung up.
  /// @param fd borrowed; forget the watch before closing it
  /// @throws std::system_error
  [[nodiscard]] WatchId Watch(int fd, Handler handler);
  void Forget(WatchId id);

  /// Calls the handler once, at that time or a little later.
  [[nodiscard]] TimerId At(Clock::time_point when, Handler handler);
  /// Harmless for a timer that is over.
  void Cancel(const TimerId& id);

  /// Called at the end of each turn.
  /// @param turn returns how long the next turn may wait at most; empty: any time
  void SetTurn(std::function<std::optional<std::chrono::milliseconds>()> turn);

  /// Runs until Stop is called.
  /// @throws std::system_error, and what a handler throws
  void Run();
  void Stop() { running_ = false; }

 private:
  struct Watched {
    int fd;
    Handler handler;
  };
  [[nodiscard]] int WaitMilliseconds() const;
  void Wait();
  void RunTimers();

  UniqueFd epoll_;
  std::uint64_t last_number_ = 0;
  std::map<WatchId, Watched> watched_;
  std::map<TimerId, Handler> timers_;
  std::function<std::optional<std::chrono::milliseconds>()> turn_;
  std::optional<std::chrono::milliseconds> longest_wait_;
  bool running_ = false;
};

}  // namespace kalo::webapid
