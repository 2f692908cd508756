#include "host/core/signal_queue.h"

#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace kalo {

SignalQueue::SignalQueue(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  fd_.Reset(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!fd_) throw std::system_error(errno, std::generic_category(), "signalfd");
}

int SignalQueue::Next() {
  signalfd_siginfo info{};
  if (read(fd_.Get(), &info, sizeof info) != sizeof info) return 0;
  return static_cast<int>(info.ssi_signo);
}

}  // namespace kalo
