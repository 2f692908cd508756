#include "box/service.h"

#include <algorithm>

#include "host/core/spawn.h"

namespace kalo::box {
namespace {

constexpr std::chrono::milliseconds kFirstPause{100};
constexpr std::chrono::milliseconds kLongestPause{5000};
constexpr std::chrono::seconds kLongLife{10};

}  // namespace

bool Service::Tick(Clock::time_point now) {
  if (!wanted_ || pid_ != 0 || now < not_before_ || !program_.may_start()) return false;
  SpawnOptions options;
  options.pass_fd = program_.pass_fd;
  options.stdout_fd = 2;
  options.own_session = true;
  const pid_t pid = Spawn(program_.argv, options);
  started_ = now;
  if (pid <= 0) {
    OnExit(now);
    return false;
  }
  pid_ = pid;
  return true;
}

void Service::OnExit(Clock::time_point now) {
  pid_ = 0;
  pause_ = now - started_ >= kLongLife ? std::chrono::milliseconds(0)
                                       : std::clamp(pause_ * 2, kFirstPause, kLongestPause);
  not_before_ = now + pause_;
}

}  // namespace kalo::box
