#include "services/meshd/signal_watch.h"

#include <csignal>
#include <utility>

namespace kalo::meshd {
namespace {

sigset_t EndSignals() {
  sigset_t signals{};
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  return signals;
}

}  // namespace

void BlockEndSignals() {
  const sigset_t signals = EndSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

SignalWatch::SignalWatch(std::function<void()> stop)
    : thread_([stop = std::move(stop)] {
        const sigset_t signals = EndSignals();
        int signal = 0;
        sigwait(&signals, &signal);
        stop();
      }) {}

// Wakes a thread that still waits; a signal that nobody takes any more is harmless.
SignalWatch::~SignalWatch() {
  // NOLINTNEXTLINE(bugprone-bad-signal-to-kill-thread): blocked, so it ends nobody
  pthread_kill(thread_.native_handle(), SIGTERM);
  thread_.join();
}

}  // namespace kalo::meshd
