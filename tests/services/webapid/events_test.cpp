#include <signal.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <mutex>
#include <vector>

#include "tests/services/webapid/server_fixture.h"
#include "tests/support/wait.h"

namespace kalo::test {
namespace {

constexpr const char* kRow = "KALO.Test/1/watched";

void Say(const std::string& text) {
  WriteTestFile("/run/template.new", text);
  std::filesystem::rename("/run/template.new", "/run/template.watched");
}

std::size_t Asked() {
  std::error_code none;
  const auto size = std::filesystem::file_size("/run/template.asked", none);
  return none ? 0 : size;
}

std::string Event(const std::string& text) {
  return R"(data: {"data":")" + text + "\",\"success\":true}\n\n";
}

class Events : public ServerTest {
 protected:
  // One page that listens until it is told to leave.
  struct Listener {
    std::atomic<bool> leave = false;
    std::mutex mutex;
    std::string heard;
    std::future<HttpAnswer> answer;

    [[nodiscard]] bool Heard(const std::string& text) {
      const std::lock_guard guard(mutex);
      return heard.find(text) != std::string::npos;
    }
  };

  void SetUp() override {
    ServerTest::SetUp();
    Say("one");
    client_ = SignedIn();
  }

  void StartListening(Listener& listener) const {
    HttpClient client = Admin();
    client.SetSession(client_.cookie, client_.token);
    client.SetPatience(std::chrono::seconds(30));
    listener.answer = std::async(std::launch::async, [client, &listener]() mutable {
      return client.Listen(kRow, [&listener](const std::string& so_far) {
        const std::lock_guard guard(listener.mutex);
        listener.heard = so_far;
        return !listener.leave;
      });
    });
  }

  static void EndListening(Listener& listener) {
    listener.leave = true;
    listener.answer.wait();
  }

  HttpClient client_ = Admin();
};

TEST_F(Events, EachChangeIsToldOnce) {
  Listener page;
  StartListening(page);
  EXPECT_TRUE(WaitFor([&] { return page.Heard(Event("one")); }));
  const std::size_t asked = Asked();
  EXPECT_TRUE(WaitFor([&] { return Asked() >= asked + 2; }));
  Say("two");
  EXPECT_TRUE(WaitFor([&] { return page.Heard(Event("two")); }));
  EndListening(page);
  const HttpAnswer all = page.answer.get();
  EXPECT_EQ(all.status, 200);
  EXPECT_EQ(all.headers.at("content-type"), "text/event-stream");
  EXPECT_EQ(all.headers.at("cache-control"), "no-store");
  EXPECT_EQ(all.body, Event("one") + Event("two"));
}

TEST_F(Events, NobodyIsAskedForOnesThatNobodyHears) {
  Listener page;
  StartListening(page);
  EXPECT_TRUE(WaitFor([&] { return page.Heard(Event("one")); }));
  EndListening(page);
  // The server learns that the client has left when it next has something to say.
  Say("two");
  using Clock = std::chrono::steady_clock;
  EXPECT_TRUE(WaitFor([asked = Asked(), since = Clock::now()]() mutable {
    if (const std::size_t now = Asked(); now != asked) {
      asked = now;
      since = Clock::now();
    }
    return Clock::now() - since > std::chrono::milliseconds(2500);
  }));
}

TEST_F(Events, ManyListenersCostOneQuestion) {
  std::vector<Listener> pages(8);
  for (Listener& page : pages) StartListening(page);
  for (Listener& page : pages) {
    EXPECT_TRUE(WaitFor([&] { return page.Heard(Event("one")); }));
  }
  const std::size_t asked = Asked();
  EXPECT_LE(asked, 6U);
  Say("two");
  for (Listener& page : pages) {
    EXPECT_TRUE(WaitFor([&] { return page.Heard(Event("two")); }));
  }
  EXPECT_LE(Asked() - asked, 6U);
  for (Listener& page : pages) EndListening(page);
}

TEST_F(Events, TooManyAreToldToPoll) {
  std::vector<Listener> pages(32);
  for (Listener& page : pages) StartListening(page);
  for (Listener& page : pages) {
    EXPECT_TRUE(WaitFor([&] { return page.Heard(Event("one")); }));
  }
  const HttpAnswer refused = client_.Listen(kRow, [](const std::string&) { return true; });
  EXPECT_EQ(refused.status, 503);
  EXPECT_EQ(refused.Code(), 7008);
  EXPECT_EQ(client_.Post(kRow).Data().asString(), "one");
  for (Listener& page : pages) EndListening(page);
}

TEST_F(Events, TheSameRowAnswersAPoll) {
  const HttpAnswer answer = client_.Post(kRow);
  EXPECT_EQ(answer.Data().asString(), "one");
  EXPECT_EQ(answer.headers.at("content-type"), "application/json");
}

TEST_F(Events, OtherRowsAnswerOnceWhateverIsAccepted) {
  const HttpAnswer answer =
      client_.Listen("KALO.Test/1/poll", [](const std::string&) { return true; });
  EXPECT_EQ(answer.Code(), 0);
  EXPECT_EQ(answer.headers.at("content-type"), "application/json");
}

TEST_F(Events, NeedASessionAndItsToken) {
  const auto stay = [](const std::string&) { return true; };
  EXPECT_EQ(Admin().Listen(kRow, stay).Code(), 7003);
  HttpClient other = Admin();
  other.SetSession(client_.cookie, "wrong");
  EXPECT_EQ(other.Listen(kRow, stay).Code(), 7005);
  EXPECT_EQ(SignedIn(kGuest).Listen(kRow, stay).Code(), 7006);
}

TEST_F(Events, EndWithTheSession) {
  Listener page;
  StartListening(page);
  EXPECT_TRUE(WaitFor([&] { return page.Heard(Event("one")); }));
  EXPECT_EQ(client_.Post("KALO.Core.Auth/1/logout").Code(), 0);
  EXPECT_EQ(page.answer.get().status, 200);  // its end
}

TEST_F(Events, WhoComesAfterAllHaveLeftHearsTheStateAtOnce) {
  for (int i = 0; i < 5; ++i) {
    Listener page;
    StartListening(page);
    EXPECT_TRUE(WaitFor([&] { return page.Heard(Event("one")); })) << i;
    EXPECT_EQ(client_.Post("KALO.Core.Auth/1/logout").Code(), 0);
    EXPECT_EQ(page.answer.get().status, 200);
    client_ = SignedIn();
  }
}

TEST_F(Events, EndWithTheRightToListen) {
  Listener page;
  StartListening(page);
  EXPECT_TRUE(WaitFor([&] { return page.Heard(Event("one")); }));
  std::string users = ReadTestFile("/etc/kalo/users.json");
  users.replace(users.find("administrators"), 14, "visitors");
  WriteTestFile("/etc/kalo/users.json", users);
  EXPECT_EQ(page.answer.get().status, 200);
  EXPECT_EQ(client_.Listen(kRow, [](const std::string&) { return true; }).Code(), 7006);
}

TEST_F(Events, ListeningDoesNotKeepASessionAlive) {
  EXPECT_EQ(Stop(), 0);
  Configure(R"(,"session":{"idle_s":3,"absolute_s":60})");
  Start();
  client_ = SignedIn();
  Listener page;
  StartListening(page);
  EXPECT_EQ(page.answer.get().status, 200);
  EXPECT_EQ(client_.Post("KALO.Test/1/echo").Code(), 7004);
}

TEST_F(Events, EndWithTheServer) {
  Listener page;
  StartListening(page);
  EXPECT_TRUE(WaitFor([&] { return page.Heard(Event("one")); }));
  EXPECT_EQ(Stop(), 0);
  EXPECT_EQ(page.answer.get().status, 200);
}

TEST_F(Events, ARequestThatFailsIsTold) {
  Listener page;
  StartListening(page);
  EXPECT_TRUE(WaitFor([&] { return page.Heard(Event("one")); }));
  Say("die");
  EXPECT_TRUE(WaitFor([&] { return page.Heard(R"("code":7010)"); }));
  Say("two");
  EXPECT_TRUE(WaitFor([&] { return page.Heard(Event("two")); }));
  EndListening(page);
}

TEST_F(Events, ALongSilenceIsBroken) {
  Listener page;
  StartListening(page);
  EXPECT_TRUE(WaitFor([&] { return page.Heard(":\n\n"); }));
  EndListening(page);
  EXPECT_EQ(page.answer.get().body, Event("one") + ":\n\n");
}

TEST_F(Events, AWorkerThatDiesIsNotHeardOf) {
  Listener page;
  StartListening(page);
  EXPECT_TRUE(WaitFor([&] { return page.Heard(Event("one")); }));
  kill(client_.Post("KALO.Test/1/pid").Data().asInt(), SIGKILL);
  Say("two");
  EXPECT_TRUE(WaitFor([&] { return page.Heard(Event("two")); }));
  EXPECT_FALSE(page.Heard("error"));
  EndListening(page);
}

}  // namespace
}  // namespace kalo::test
