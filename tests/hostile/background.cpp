#include "tests/hostile/background.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "tests/support/wait.h"

namespace kalo::hostile {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kStrangers = 30;
constexpr int kSignedIn = 8;  // of each kind
constexpr milliseconds kBetweenPolls{50};
constexpr milliseconds kBetweenBytes{200};

std::string Begin(const char* row) {
  return std::string("POST /webapi/") + row + " HTTP/1.1\r\n";
}

// More than anybody waits for is promised.
std::string SignedInBegin(const char* row, const Session& session, const char* type) {
  return Begin(row) + "Host: router.test\r\n" + SessionHeaders(session) + "Content-Type: " + type +
         "\r\nContent-Length: 100000\r\n\r\n";
}

std::string SlowJson(const Session& session) {
  return SignedInBegin("KALO.Mesh.Upgrade/1/start", session, "application/json") + R"({"mark":")" +
         kSlowMark + R"(","more":")";
}

std::string SlowFile(const Session& session) {
  const std::string form = GoodForm(kSlowMark, std::string(1000, 'p'));
  return SignedInBegin("KALO.Mesh.Upgrade.Patch/1/upload", session, kFormType) +
         form.substr(0, form.rfind("\r\n--"));
}

}  // namespace

Poller::Poller(test::HttpClient client, std::vector<std::string> rows)
    : client_(std::move(client)), rows_(std::move(rows)), thread_([this] { Run(); }) {}

Poller::~Poller() {
  if (thread_.joinable()) (void)Stop();
}

std::vector<milliseconds> Poller::Stop() {
  over_ = true;
  thread_.join();
  std::sort(times_.begin(), times_.end());
  return times_;
}

void Poller::Run() {
  const std::string body = std::string(R"({"mark":")") + kPollMark + "\"}";
  for (std::size_t turn = 0; !over_; ++turn) {
    const std::string& row = rows_[turn % rows_.size()];
    const auto begin = steady_clock::now();
    EXPECT_EQ(client_.Post(row, body).Code(), 0) << row;
    times_.push_back(std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin));
    (void)test::WaitFor([this] { return over_.load(); }, kBetweenPolls);
  }
}

SlowSenders::SlowSenders(const Session& administrator) {
  Add(kStrangers, Begin("KALO.Mesh.Upgrade/1/start") + "X-Slow: ", "127.0.0.1");
  Add(kSignedIn, SlowJson(administrator), "127.0.0.2");
  Add(kSignedIn, SlowFile(administrator), "127.0.0.2");
  thread_ = std::thread([this] { Run(); });
}

SlowSenders::~SlowSenders() {
  over_ = true;
  thread_.join();
}

void SlowSenders::Add(int count, const std::string& begin, const char* address) {
  for (int i = 0; i < count; ++i) senders_.push_back({begin, {address}, nullptr});
}

void SlowSenders::Run() {
  while (!over_) {
    for (Sender& sender : senders_) {
      if (!sender.client || !sender.client->IsOpen()) {
        sender.client =
            std::make_unique<test::RawClient>(kAdminPort, test::ClientFiles{}, sender.origin);
        sender.client->Send(sender.begin);
      }
      sender.client->Send("s");
    }
    (void)test::WaitFor([this] { return over_.load(); }, kBetweenBytes);
  }
}

}  // namespace kalo::hostile
