#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/hostile/attack.h"
#include "tests/support/http_client.h"
#include "tests/support/raw_client.h"

namespace kalo::hostile {

inline constexpr int kAdminPort = 443;
inline constexpr int kMeshPort = 8443;
/// Marks of requests that are no attack, and of those that never come to an end.
inline constexpr const char* kPollMark = "poll";
inline constexpr const char* kSlowMark = "slow";

/// Asks polls all the time, and notes how long each answer took.
class Poller {
 public:
  /// @param rows <api>/<version>/<method>, asked by turns
  Poller(test::HttpClient client, std::vector<std::string> rows);
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;
  ~Poller();

  /// @return all times, shortest first.
  [[nodiscard]] std::vector<std::chrono::milliseconds> Stop();

 private:
  void Run();

  test::HttpClient client_;
  std::vector<std::string> rows_;
  std::atomic<bool> over_ = false;
  std::vector<std::chrono::milliseconds> times_;
  std::thread thread_;
};

/// Clients that send a byte from time to time and never come to an end: strangers in the middle of
/// a header, and from another address an administrator's in the middle of a body or of a file.
class SlowSenders {
 public:
  explicit SlowSenders(const Session& administrator);
  SlowSenders(const SlowSenders&) = delete;
  SlowSenders& operator=(const SlowSenders&) = delete;
  ~SlowSenders();

 private:
  struct Sender {
    std::string begin;
    test::Origin origin;
    std::unique_ptr<test::RawClient> client;
  };
  void Add(int count, const std::string& begin, const char* address);
  void Run();

  std::vector<Sender> senders_;
  std::atomic<bool> over_ = false;
  std::thread thread_;
};

}  // namespace kalo::hostile
