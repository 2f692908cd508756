#pragma once

#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/core/unique_fd.h"

namespace kalo::test {

/// Receives the system log of a private root at /dev/log, as long as it lives.
class LogSocket {
 public:
  LogSocket();
  LogSocket(const LogSocket&) = delete;
  LogSocket& operator=(const LogSocket&) = delete;
  ~LogSocket();

  /// @return whether a line with this text has come, or comes within some seconds.
  [[nodiscard]] bool WaitFor(const std::string& text);
  [[nodiscard]] std::string All();

 private:
  void Receive();

  UniqueFd socket_;
  std::mutex mutex_;
  std::vector<std::string> lines_;
  std::thread receiver_;
};

}  // namespace kalo::test
