#pragma once

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <stdexcept>

#include "host/core/spawn.h"
#include "host/core/unique_fd.h"

namespace kalo {

/// A real system bus in the test's private root, with the mesh service's policy, for as long as the
/// object lives.
class PrivateBus {
 public:
  static constexpr const char* kSocket = "/run/dbus/system_bus_socket";

  PrivateBus() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const UniqueFd read_end(ends[0]);
    UniqueFd write_end(ends[1]);
    SpawnOptions options;
    options.stdout_fd = write_end.Get();
    pid_ = Spawn({"/usr/bin/dbus-daemon", std::string("--config-file=") + KALO_TEST_BUS_CONFIG,
                  "--nofork", "--nopidfile", "--print-address=1"},
                 options);
    if (pid_ < 0) throw std::runtime_error("dbus-daemon does not start");
    write_end.Reset();
    // It prints its address once it listens.
    pollfd ready{read_end.Get(), POLLIN, 0};
    char first = 0;
    if (poll(&ready, 1, kStartLimitMs) != 1 || read(read_end.Get(), &first, 1) != 1) {
      Stop();
      throw std::runtime_error("dbus-daemon does not listen");
    }
  }
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  ~PrivateBus() { Stop(); }

  void Stop() {
    if (pid_ < 0) return;
    kill(pid_, SIGTERM);
    static_cast<void>(WaitForExit(pid_));
    pid_ = -1;
    unlink(kSocket);
  }

 private:
  static constexpr int kStartLimitMs = 10000;
  pid_t pid_ = -1;
};

}  // namespace kalo
