#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <string_view>
#include <vector>

#include "host/core/unique_fd.h"
#include "platform/paths.h"
#include "tests/services/webapid/server_fixture.h"
#include "tests/support/raw_client.h"
#include "tests/support/wait.h"

namespace kalo::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kAdminPort = 443;
constexpr int kMeshPort = 8443;
constexpr int kLimit = 16;
constexpr int kAddresses = 20;

constexpr std::string_view kRequest =
    "POST /webapi/KALO.Test/1/echo HTTP/1.1\r\nHost: router.test\r\n"
    "Content-Type: application/json\r\nContent-Length: 2\r\n\r\n{}";
constexpr std::string_view kPartOfHello("\x16\x03\x01\x02\x00\x01\x00\x01\xFC", 9);

UniqueFd ConnectLocal() {
  UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, KALO::paths::kLocalSocket, sizeof(address.sun_path) - 1);
  if (connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) fd.Reset();
  return fd;
}

void SendText(const UniqueFd& fd, std::string_view text) {
  (void)send(fd.Get(), text.data(), text.size(), MSG_NOSIGNAL);
}

// @return what came until the server closes or the time is over.
std::string ReadUntil(const UniqueFd& fd, std::string_view end, milliseconds time) {
  std::string text;
  const auto deadline = Clock::now() + time;
  while (text.find(end) == std::string::npos) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    pollfd wait{fd.Get(), POLLIN, 0};
    if (left.count() <= 0 || poll(&wait, 1, static_cast<int>(left.count())) <= 0) break;
    char byte = 0;
    if (recv(fd.Get(), &byte, 1, 0) != 1) break;
    text += byte;
  }
  return text;
}

// Waits for the end of a connection on which nothing is expected.
bool IsClosedBefore(const UniqueFd& fd, milliseconds time) {
  const auto deadline = Clock::now() + time;
  (void)ReadUntil(fd, "\n\n\n", time);
  return Clock::now() < deadline;
}

// One kind of listener: how to reach it, and whether it answers an honest client within a second.
struct Door {
  const char* name;
  std::function<UniqueFd(int number)> connect;
  std::function<bool()> answers;
};

std::string AddressOf(int number) {
  return "127.0.0." + std::to_string(2 + number % kAddresses);
}

bool Answers(int port, int status) {
  RawClient client(port, {});
  return client.Send(std::string(kRequest)) && client.Answer(seconds(1), true) == status;
}

Door TlsDoor(const char* name, int port, int status) {
  return {name, [port](int number) { return Connect(port, {AddressOf(number)}); },
          [port, status] { return Answers(port, status); }};
}

Door LocalDoor() {
  return {"local", [](int) { return ConnectLocal(); },
          [] {
            const UniqueFd fd = ConnectLocal();
            SendText(fd, kRequest);
            return ReadUntil(fd, "\r\n\r\n", seconds(1)).starts_with("HTTP/1.1 200 ");
          }};
}

class Bursts : public ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    Restart(R"(, "limits": {"connections": )" + std::to_string(kLimit) + "}");
  }
  void Restart(const std::string& more) {
    ASSERT_EQ(Stop(), 0);
    Configure(more);
    Start();
    ASSERT_TRUE(WaitFor([] { return bool(ConnectLocal()); }));
  }
  static std::vector<Door> Doors() {
    return {TlsDoor("admin", kAdminPort, 401), TlsDoor("mesh", kMeshPort, 403), LocalDoor()};
  }
  static std::vector<UniqueFd> Burst(const Door& door, int count, std::string_view bytes) {
    std::vector<UniqueFd> held;
    for (int i = 0; i < count; ++i) {
      held.push_back(door.connect(i));
      EXPECT_TRUE(held.back()) << door.name << " " << i;
      if (!bytes.empty()) SendText(held.back(), bytes);
    }
    return held;
  }
  [[nodiscard]] static bool EveryDoorAnswers() {
    const std::vector<Door> doors = Doors();
    return std::all_of(doors.begin(), doors.end(), [](const Door& door) { return door.answers(); });
  }
};

// What each connection of a burst sends: nothing, a part of a handshake or request, noise.
constexpr std::string_view kHalfRequest = "POST /webapi/KALO.Test/1/echo HTTP/1.1\r\nHost: x\r\n";
constexpr std::string_view kBursts[] = {"", kPartOfHello, kHalfRequest};

TEST_F(Bursts, AfterEachBurstEveryListenerStillAnswers) {
  for (const Door& door : Doors()) {
    for (const std::string_view bytes : kBursts) {
      for (const int count : {kLimit / 2, kLimit, 3 * kLimit, kLimit}) {
        {
          const std::vector<UniqueFd> held = Burst(door, count, bytes);
          EXPECT_TRUE(door.answers()) << door.name << " holding " << count;
        }
        EXPECT_TRUE(EveryDoorAnswers()) << door.name << " after " << count;
      }
    }
  }
}

TEST_F(Bursts, AConnectionThatSendsTooLittleIsClosedInTime) {
  Restart("");
  const auto begin = Clock::now();
  std::vector<UniqueFd> first;
  first.push_back(Connect(kAdminPort));
  first.push_back(Connect(kMeshPort));
  first.push_back(Connect(kAdminPort));
  SendText(first.back(), kPartOfHello);
  const UniqueFd local = ConnectLocal();
  SendText(local, kHalfRequest);
  RawClient half(kAdminPort, {});
  ASSERT_TRUE(half.Send(std::string(kHalfRequest)));
  for (const UniqueFd& fd : first) EXPECT_TRUE(IsClosedBefore(fd, kLongWait));
  EXPECT_LT(Clock::now() - begin, seconds(9)) << "the handshake's time, not the head's";
  EXPECT_TRUE(IsClosedBefore(local, kLongWait));
  EXPECT_EQ(half.Answer(kLongWait, true), 0);
  EXPECT_LT(Clock::now() - begin, seconds(20)) << "the head's time, not the body's";
}

TEST_F(Bursts, AConnectionWithASessionOutlivesThoseWithout) {
  const HttpClient user = SignedIn();
  const std::string poll =
      "POST /webapi/KALO.Test/1/poll HTTP/1.1\r\nHost: router.test\r\nContent-Length: 2\r\n"
      "Cookie: kalo_session=" +
      user.cookie + "\r\nX-KALO-Token: " + user.token + "\r\n\r\n{}";
  RawClient page(kAdminPort, {});
  for (const std::string_view bytes : kBursts) {
    ASSERT_TRUE(page.Send(poll));
    EXPECT_EQ(page.Answer(seconds(1), true), 200);
    (void)Burst(Doors().front(), 3 * kLimit, bytes);
  }
  ASSERT_TRUE(page.Send(poll));
  EXPECT_EQ(page.Answer(seconds(1), true), 200);
}

TEST_F(Bursts, ARequestThatIsServedIsNotCutForOthers) {
  const HttpClient user = SignedIn();
  RawClient page(kAdminPort, {});
  ASSERT_TRUE(
      page.Send("POST /webapi/KALO.Test/1/hang HTTP/1.1\r\nHost: router.test\r\n"
                "Content-Length: 2\r\nCookie: kalo_session=" +
                user.cookie + "\r\nX-KALO-Token: " + user.token + "\r\n\r\n{}"));
  const std::vector<UniqueFd> held = Burst(Doors().front(), 3 * kLimit, "");
  EXPECT_EQ(page.Answer(kLongWait, true), 504);
}

TEST_F(Bursts, OneAddressDoesNotTakeTheOthersPlaces) {
  RawClient other(kAdminPort, {}, {"127.0.0.99"});
  const std::vector<UniqueFd> greedy =
      Burst({"one", [](int) { return Connect(kAdminPort, {"127.0.0.3"}); }, {}}, 3 * kLimit, "");
  ASSERT_TRUE(other.Send(std::string(kRequest)));
  EXPECT_EQ(other.Answer(seconds(1), true), 401);
}

TEST_F(Bursts, PollsAreAnsweredWhileAThousandConnectionsAreHeld) {
  Restart("");
  HttpClient user = SignedIn();
  user.SetPatience(seconds(1));
  const Door door = Doors().front();
  constexpr int kHeld = 1000;
  std::vector<UniqueFd> held = Burst(door, kHeld / 2, "");
  for (UniqueFd& fd : Burst(door, kHeld / 2, kPartOfHello)) held.push_back(std::move(fd));
  int answered = 0;
  for (int i = 0; i < 100; ++i) {
    for (int n = 10 * i; n < 10 * i + 10; ++n) held[static_cast<std::size_t>(n)] = door.connect(n);
    if (Call(user, "poll").status == 200) ++answered;
  }
  EXPECT_EQ(answered, 100);
}

}  // namespace
}  // namespace kalo::test
