#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <future>
#include <vector>

#include "host/core/unique_fd.h"
#include "tests/services/webapid/server_fixture.h"
#include "tests/support/wait.h"

namespace kalo::test {
namespace {

class Workers : public ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    client_ = SignedIn();
  }

  // A copy for another thread.
  [[nodiscard]] HttpClient Copy() const {
    HttpClient copy = Admin();
    copy.SetSession(client_.cookie, client_.token);
    return copy;
  }

  [[nodiscard]] static bool LockIsFree() {
    const UniqueFd fd(open("/run/template.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    return flock(fd.Get(), LOCK_EX | LOCK_NB) == 0;
  }

  [[nodiscard]] static std::ptrdiff_t CountWorkers() {
    return std::count_if(std::filesystem::directory_iterator("/proc"),
                         std::filesystem::directory_iterator(), [](const auto& process) {
                           return ReadTestFile(process.path() / "comm") == "webapid-worker\n";
                         });
  }

  /// Starts requests that last until the FIFO is opened for writing, and waits until they run.
  [[nodiscard]] std::vector<std::future<HttpAnswer>> StartHolding(
      std::ptrdiff_t count, const std::string& method = "hold") const {
    EXPECT_EQ(mkfifo("/run/template.hold", 0600), 0);
    std::vector<std::future<HttpAnswer>> held;
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      held.push_back(std::async(std::launch::async, [client = Copy(), method]() mutable {
        return Call(client, method);
      }));
    }
    EXPECT_TRUE(WaitFor([count] {
      return std::count_if(std::filesystem::directory_iterator("/run"),
                           std::filesystem::directory_iterator(), [](const auto& entry) {
                             const std::string name = entry.path().filename();
                             return name.starts_with("template.holding.") &&
                                    !name.ends_with(".new");
                           }) == count;
    }));
    return held;
  }

  HttpClient client_ = Admin();
};

TEST_F(Workers, TheLastAnswerOfARowCounts) {
  const HttpAnswer answer = Call(client_, "fail");
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.Code(), 5209);
}

TEST_F(Workers, ServeOneAfterTheOtherInOneProcess) {
  const int first = Call(client_, "pid").Data().asInt();
  EXPECT_EQ(Call(client_, "pid").Data().asInt(), first);
}

TEST_F(Workers, AnythingThrownIsAGeneralFailure) {
  EXPECT_EQ(Call(client_, "throw_standard").Code(), 117);
  EXPECT_TRUE(log_.WaitFor("KALO.Test 1 throw_standard threw: planted"));
  EXPECT_EQ(Call(client_, "throw_other").Code(), 117);
  EXPECT_TRUE(log_.WaitFor("KALO.Test 1 throw_other threw something"));
  EXPECT_EQ(Call(client_, "throw_other").status, 200);
}

TEST_F(Workers, NoAnswerIsAGeneralFailureAndALogLine) {
  EXPECT_EQ(Call(client_, "no_answer").Code(), 117);
  EXPECT_TRUE(log_.WaitFor("KALO.Test 1 no_answer set no answer"));
}

TEST_F(Workers, ACrashCostsOneAnswer) {
  for (const char* method : {"abort", "segfault"}) {
    const HttpAnswer crash = Call(client_, method);
    EXPECT_EQ(crash.status, 502) << method;
    EXPECT_EQ(crash.Code(), 7010) << method;
    EXPECT_EQ(Call(client_, "echo").Code(), 0);
  }
}

TEST_F(Workers, AnIdleWorkerThatDiesCostsNothing) {
  const int worker = Call(client_, "pid").Data().asInt();
  kill(worker, SIGKILL);
  ASSERT_TRUE(WaitFor([worker] { return kill(worker, 0) != 0; }));
  EXPECT_EQ(Call(client_, "echo").Code(), 0);
}

TEST_F(Workers, AModuleThatCouldNotBeReadOnceIsReadByTheNextWorker) {
  const std::filesystem::path module = "/usr/kalo/webapi/template.so";
  std::filesystem::rename(module, "/usr/kalo/aside.so");
  EXPECT_EQ(Call(client_, "echo").Code(), 7002);
  std::filesystem::rename("/usr/kalo/aside.so", module);
  EXPECT_EQ(Call(client_, "echo").Code(), 0);
}

TEST_F(Workers, AFolderOfModulesThatCannotBeReadIsTold) {
  EXPECT_EQ(Stop(), 0);
  std::filesystem::rename("/usr/kalo/webapi", "/usr/kalo/aside");
  Start();
  EXPECT_TRUE(log_.WaitFor("/usr/kalo/webapi: No such file or directory"));
}

TEST_F(Workers, AHungRequestIsStoppedAtItsTimeLimit) {
  const HttpAnswer hung = Call(client_, "hang");
  EXPECT_EQ(hung.status, 504);
  EXPECT_EQ(hung.Code(), 7009);
  EXPECT_EQ(Call(client_, "echo").Code(), 0);
}

TEST_F(Workers, NestedCallsStayInTheProcess) {
  const Json::Value data = Call(client_, "nested").Data();
  EXPECT_TRUE(data["known"]["success"].asBool());
  EXPECT_EQ(data["known"]["data"]["a"].asInt(), 5);
  EXPECT_FALSE(data["unknown"]["success"].asBool());
  EXPECT_EQ(data["unknown"]["error"]["code"].asInt(), 7002);
}

TEST_F(Workers, AChildThatComesBackAnswersNothing) {
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(Call(client_, "fork_return").Data().asString(), "parent");
    EXPECT_EQ(Call(client_, "fork_throw").Data().asString(), "parent");
    EXPECT_EQ(Call(client_, "echo").Code(), 0);
  }
  EXPECT_TRUE(log_.WaitFor("background task"));
  EXPECT_TRUE(log_.WaitFor("KALO.Test 1 fork_throw threw: thrown in the child"));
}

TEST_F(Workers, AWorkerWhoseRequestForkedServesNoOther) {
  const int before = Call(client_, "pid").Data().asInt();
  EXPECT_EQ(Call(client_, "fork_return").Code(), 0);
  EXPECT_NE(Call(client_, "pid").Data().asInt(), before);
  EXPECT_TRUE(WaitFor([before] { return kill(before, 0) != 0; }));
}

TEST_F(Workers, ALockLivesAsLongAsTheChildThatOwnsIt) {
  const int child = Call(client_, "fork_lock").Data().asInt();
  ASSERT_TRUE(WaitFor([] { return std::filesystem::exists("/run/template.child"); }));
  EXPECT_EQ(Call(client_, "fork_lock").Code(), 117);  // busy
  EXPECT_FALSE(LockIsFree());
  kill(child, SIGKILL);
  EXPECT_TRUE(WaitFor(LockIsFree));
}

TEST_F(Workers, AForkThatFailsFreesTheLockToo) {
  EXPECT_EQ(Call(client_, "fork_lock_fails").Data().asString(), "no child");
  EXPECT_TRUE(WaitFor(LockIsFree));
}

TEST_F(Workers, AChildHoldsNoSocketOfTheServer) {
  EXPECT_EQ(Call(client_, "fork_descriptors").Code(), 0);
  ASSERT_TRUE(WaitFor([] { return std::filesystem::exists("/run/template.descriptors"); }));
  std::string list = ReadTestFile("/run/template.descriptors");
  EXPECT_EQ(list.find("\n3 socket:"), std::string::npos) << list;
  EXPECT_EQ(list.find("eventpoll"), std::string::npos) << list;
  // Its connection to the system log is the one socket that it may have.
  const std::size_t first = list.find("socket:");
  if (first != std::string::npos) {
    EXPECT_EQ(list.find("socket:", first + 1), std::string::npos) << list;
  }
}

TEST_F(Workers, AFullPoolIsBusyAtOnceWhilePollsGoOn) {
  auto held = StartHolding(3);  // of four workers; the last one is for polls
  const HttpAnswer busy = Call(client_, "echo");
  EXPECT_EQ(busy.status, 503);
  EXPECT_EQ(busy.Code(), 7008);
  EXPECT_EQ(busy.headers.count("retry-after"), 1U);
  EXPECT_EQ(Call(client_, "poll").Code(), 0);
  {
    const UniqueFd release(open("/run/template.hold", O_RDWR | O_CLOEXEC));
    for (auto& answer : held) EXPECT_EQ(answer.get().Data().asString(), "held");
  }
  EXPECT_EQ(Call(client_, "echo").Code(), 0);
}

TEST_F(Workers, ARushLeavesOneWorkerBehind) {
  const int first = Call(client_, "pid").Data().asInt();
  auto held = StartHolding(3);
  {
    const UniqueFd release(open("/run/template.hold", O_RDWR | O_CLOEXEC));
    for (auto& answer : held) EXPECT_EQ(answer.get().Code(), 0);
  }
  EXPECT_GT(CountWorkers(), 1);
  EXPECT_TRUE(WaitFor([] { return CountWorkers() == 1; }, std::chrono::seconds(60)));
  EXPECT_EQ(Call(client_, "pid").Data().asInt(), first);
}

TEST_F(Workers, PollsWaitForTheirTurn) {
  auto held = StartHolding(3);  // one worker is left for all of them
  constexpr std::size_t kPolls = 20;
  std::vector<std::future<HttpAnswer>> polls;
  polls.reserve(kPolls);
  for (std::size_t i = 0; i < kPolls; ++i) {
    polls.push_back(std::async(std::launch::async,
                               [client = Copy()]() mutable { return Call(client, "poll"); }));
  }
  for (auto& poll : polls) EXPECT_EQ(poll.get().Code(), 0);
  const UniqueFd release(open("/run/template.hold", O_RDWR | O_CLOEXEC));
  for (auto& answer : held) EXPECT_EQ(answer.get().Code(), 0);
}

TEST_F(Workers, APollThatNobodyCanTakeIsToldSoAfterASecond) {
  auto held = StartHolding(4, "hold_poll");
  EXPECT_EQ(Call(client_, "poll").Code(), 7008);
  const UniqueFd release(open("/run/template.hold", O_RDWR | O_CLOEXEC));
  for (auto& answer : held) EXPECT_EQ(answer.get().Code(), 0);
  EXPECT_EQ(Call(client_, "poll").Code(), 0);
}

TEST_F(Workers, TheTwoPortsHaveWorkersOfTheirOwn) {
  EXPECT_EQ(Stop(), 0);
  Configure(R"(,"workers":{"admin":2,"mesh":2})");
  Start();
  auto held = StartHolding(1);
  EXPECT_EQ(Call(client_, "echo").Code(), 7008);
  HttpClient node = Node(MeshAuthority(), "node1.mesh.internal");
  EXPECT_EQ(Call(node, "nodes").Code(), 0);
  const UniqueFd release(open("/run/template.hold", O_RDWR | O_CLOEXEC));
  EXPECT_EQ(held[0].get().Code(), 0);
}

TEST_F(Workers, TheServersEndAnswersWhoStillWaits) {
  auto held = StartHolding(1);
  EXPECT_EQ(Stop(), 0);
  EXPECT_EQ(held[0].get().Code(), 7008);
  const UniqueFd release(open("/run/template.hold", O_RDWR | O_CLOEXEC));
}

}  // namespace
}  // namespace kalo::test
