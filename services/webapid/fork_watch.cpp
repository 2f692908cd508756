#include "services/webapid/fork_watch.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>

namespace kalo::webapid {
namespace {

// Fork handlers take no argument, so what they touch belongs to the process.
struct State {
  std::atomic<int> channel{-1};
  std::atomic<bool> forked{false};
};

State& ProcessState() {
  static State state;
  return state;
}

// Runs before the fork is tried, so that a fork that fails counts too.
void BeforeFork() {
  ProcessState().forked = true;
}

// A grandchild must not close what its parent may have opened under the same number since.
void InForkedChild() {
  const int channel = ProcessState().channel.exchange(-1);
  if (channel >= 0) close(channel);
}

}  // namespace

ForkWatch::ForkWatch(int channel) : maker_(getpid()) {
  ProcessState().channel = channel;
  ProcessState().forked = false;
  static const int kRegistered = pthread_atfork(BeforeFork, nullptr, InForkedChild);
  if (kRegistered != 0) {
    throw std::system_error(kRegistered, std::generic_category(), "pthread_atfork");
  }
}

ForkWatch::~ForkWatch() {
  ProcessState().channel = -1;
}

bool ForkWatch::Forked() const {
  return ProcessState().forked;
}

bool ForkWatch::InChild() const {
  return getpid() != maker_;
}

}  // namespace kalo::webapid
