#include <sys/socket.h>
#include <time.h>

#include <string_view>
#include <thread>
#include <vector>

#include "host/core/unique_fd.h"
#include "tests/services/webapid/server_fixture.h"
#include "tests/support/raw_client.h"
#include "tests/support/wait.h"

namespace kalo::test {
namespace {

using std::chrono::milliseconds;

constexpr int kPort = 443;

class Connections : public ServerTest {
 protected:
  [[nodiscard]] static std::string Request(const std::string& version, const std::string& more) {
    return "POST /webapi/KALO.Test/1/echo HTTP/" + version +
           "\r\nHost: router.test\r\nContent-Length: 2\r\n" + more + "\r\n{}";
  }
  // What the server's process has used of a processor so far.
  [[nodiscard]] milliseconds ProcessorTime() const {
    clockid_t clock{};
    timespec time{};
    EXPECT_EQ(clock_getcpuclockid(Pid(), &clock), 0);
    EXPECT_EQ(clock_gettime(clock, &time), 0);
    return std::chrono::seconds(time.tv_sec) + milliseconds(time.tv_nsec / 1'000'000);
  }
  [[nodiscard]] bool GetsBusy() const {
    const milliseconds before = ProcessorTime();
    const auto is_busy = [&] { return ProcessorTime() - before > milliseconds(400); };
    return WaitFor(is_busy, std::chrono::seconds(2));
  }
  // @return a connection on which a handshake was begun, and goes no further.
  [[nodiscard]] static UniqueFd BeginHandshake() {
    UniqueFd fd = Connect(kPort);
    constexpr std::string_view kPartOfHello("\x16\x03\x01\x02\x00\x01\x00\x01\xFC", 9);
    EXPECT_EQ(send(fd.Get(), kPartOfHello.data(), kPartOfHello.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(kPartOfHello.size()));
    return fd;
  }
};

bool IsWhole(std::string_view answer) {
  return answer.starts_with("HTTP/1.1 401 ") &&
         answer.find("\r\n\r\n{") != std::string_view::npos && answer.ends_with("}");
}

TEST_F(Connections, AnAnswerComesInOnePiece) {
  RawClient client(kPort, {});
  for (const char* wish : {"", "", "Connection: keep-alive\r\n", ""}) {
    ASSERT_TRUE(client.Send(Request("1.1", wish)));
    const std::string answer = client.Record(kLongWait);
    EXPECT_TRUE(IsWhole(answer)) << answer;
  }
}

// The system keeps a short piece back for 200 ms when it is told that more will come.
TEST_F(Connections, AnAnswerIsNotKeptBack) {
  RawClient client(kPort, {});
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(client.Send(Request("1.1", "")));
    ASSERT_EQ(client.Answer(kLongWait, true), 401);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));
}

// The library ends such a connection itself, before it says that the answer is on its way.
TEST_F(Connections, TheLastAnswerOfAConnectionComesWhole) {
  for (const auto& [version, wish] :
       {std::pair("1.1", "Connection: close\r\n"), std::pair("1.1", "Connection: Close, x\r\n"),
        std::pair("1.1", "Connection: keep-alive\r\nConnection: close\r\n"), std::pair("1.0", ""),
        std::pair("1.0", "Connection: keep-alive\r\n")}) {
    RawClient client(kPort, {});
    ASSERT_TRUE(client.Send(Request(version, wish)));
    EXPECT_EQ(client.Answer(kLongWait, true), 401) << version << " " << wish;
  }
}

// It says so while a worker is busy with its request.
TEST_F(Connections, AClientThatSaysNoMoreGetsItsAnswer) {
  const HttpClient user = SignedIn();
  RawClient client(kPort, {});
  ASSERT_TRUE(
      client.Send("POST /webapi/KALO.Test/1/hang HTTP/1.1\r\nHost: router.test\r\n"
                  "Content-Length: 2\r\nCookie: kalo_session=" +
                  user.cookie + "\r\nX-KALO-Token: " + user.token + "\r\n\r\n{}"));
  client.EndSending();
  EXPECT_EQ(client.Answer(kLongWait, true), 504);
}

TEST_F(Connections, AnswersToRequestsInOneGoComeAllOfThem) {
  RawClient client(kPort, {});
  std::string requests;
  for (int i = 0; i < 50; ++i) requests += Request("1.1", "");
  ASSERT_TRUE(client.Send(requests));
  for (int i = 0; i < 50; ++i) ASSERT_EQ(client.Answer(kLongWait, true), 401) << i;
}

// Anybody may begin a handshake; one that goes no further must not keep the router busy, whoever
// else is waited for: here one who is refused already and still owes the body.
TEST_F(Connections, AnUnfinishedHandshakeCostsNoTime) {
  RawClient owing(kPort, {});
  std::string head = Request("1.1", "");
  head.resize(head.size() - 2);
  ASSERT_TRUE(owing.Send(head));
  const UniqueFd fd = BeginHandshake();
  EXPECT_FALSE(GetsBusy());
  HttpClient other = Admin();
  EXPECT_EQ(Call(other, "echo").status, 401);
}

// Neither must one beside an answer that is not read.
TEST_F(Connections, NorDoesOneBesideAClientThatDoesNotRead) {
  const HttpClient user = SignedIn();
  RawClient client(kPort, {}, {"127.0.0.1", 4096});
  const std::string body = R"({"text":")" + std::string(1'000'000, 'x') + R"("})";
  const std::string request =
      "POST /webapi/KALO.Test/1/large HTTP/1.1\r\nHost: router.test\r\nContent-Length: " +
      std::to_string(body.size()) + "\r\nCookie: kalo_session=" + user.cookie +
      "\r\nX-KALO-Token: " + user.token + "\r\n\r\n" + body;
  // The system takes a part of what nobody reads.
  ASSERT_TRUE(client.Send(request + request + request));
  const UniqueFd fd = BeginHandshake();
  EXPECT_FALSE(GetsBusy());
  EXPECT_EQ(client.Answer(kLongWait, true), 200) << "all of it comes when it is read";
}

// Whatever comes while the server ends gets an answer or the end of its connection.
TEST_F(Connections, TheServerEndsWellUnderLoad) {
  for (int round = 0; round < 5; ++round) {
    const HttpClient user = SignedIn();
    std::vector<std::jthread> crowd;
    for (int i = 0; i < 8; ++i) {
      crowd.emplace_back([&user](const std::stop_token& stop) {
        HttpClient client = Admin();
        client.SetSession(user.cookie, user.token);
        while (!stop.stop_requested()) (void)Call(client, "poll");
      });
    }
    HttpClient client = Admin();
    client.SetSession(user.cookie, user.token);
    EXPECT_EQ(Call(client, "poll").status, 200);
    EXPECT_EQ(Stop(), 0);
    crowd.clear();
    Start();
  }
}

}  // namespace
}  // namespace kalo::test
