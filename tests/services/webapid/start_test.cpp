#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <chrono>

#include "host/core/spawn.h"
#include "host/core/unique_fd.h"
#include "platform/paths.h"
#include "services/webapid/worker_channel.h"
#include "tests/services/webapid/server_fixture.h"
#include "tests/support/wait.h"

namespace kalo::test {
namespace {

class StartUp : public ServerTest {
 protected:
  // Runs a program until it ends by itself.
  [[nodiscard]] static int RunProgram(const std::vector<std::string>& argv, int pass_fd = -1) {
    const UniqueFd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    SpawnOptions options;
    options.pass_fd = pass_fd;
    options.stderr_fd = null.Get();
    const pid_t pid = Spawn(argv, options);
    return pid < 0 ? -1 : WaitForExit(pid);
  }
};

TEST_F(StartUp, ABadConfigurationEndsWithItsOwnStatusAndSaysWhatIsWrong) {
  EXPECT_EQ(Stop(), 0);
  Configure(R"(,"workers":{"admin":1})");
  EXPECT_EQ(RunProgram({WEBAPID}), 78);
  EXPECT_TRUE(log_.WaitFor("/etc/kalo/webapid.json: workers: \"admin\" must be a number from 2"));
  std::filesystem::remove("/etc/kalo/webapid.json");
  EXPECT_EQ(RunProgram({WEBAPID}), 78);
  EXPECT_TRUE(log_.WaitFor("/etc/kalo/webapid.json: No such file"));
}

TEST_F(StartUp, BadCertificatesAndTakenPortsEndTheServer) {
  EXPECT_EQ(RunProgram({WEBAPID}), 1);
  EXPECT_TRUE(log_.WaitFor("cannot listen on 127.0.0.1 port 443"));
  EXPECT_EQ(Stop(), 0);
  WriteTestFile("/etc/kalo/tls/server.key", "no key");
  EXPECT_EQ(RunProgram({WEBAPID}), 1);
  EXPECT_TRUE(log_.WaitFor("are certificate and key good?"));
}

TEST_F(StartUp, ASecondServerLeavesTheUploadsOfTheFirstAlone) {
  HttpClient client = SignedIn();  // the first one is through with its start
  const std::string upload = std::string(KALO::paths::kUploads) + "/under-way/0";
  WriteTestFile(upload, "half");
  EXPECT_EQ(RunProgram({WEBAPID}), 1);
  EXPECT_TRUE(std::filesystem::exists(upload));
  EXPECT_EQ(Call(client, "echo").Code(), 0);
}

TEST_F(StartUp, ProgramsExplainThemselves) {
  for (const char* program : {WEBAPID, WEBAPID_WORKER}) {
    EXPECT_EQ(RunProgram({program, "--version"}), 0) << program;
    EXPECT_EQ(RunProgram({program, "--unknown"}), 2) << program;
  }
  EXPECT_EQ(RunProgram({WEBAPID, "--help"}), 0);
  EXPECT_EQ(RunProgram({WEBAPID, "--listen-fd", "x"}), 2);
  EXPECT_EQ(RunProgram({WEBAPID_LOGIN, "admin"}), 2);
  EXPECT_EQ(RunProgram({WEBAPID_WORKER}), 2);
}

// It could call no node as long as it lives, and the first worker lives as long as the server.
TEST_F(StartUp, AWorkerWhoseTlsLibraryCannotBeUsedRetires) {
  const webapid::ChannelPair channel = webapid::MakeChannel();
  ASSERT_TRUE(webapid::SendMessage(channel.front.Get(), 0, "KALO.Test 1 echo\n{}"));
  EXPECT_EQ(RunProgram({"/usr/bin/env", "LD_PRELOAD=" NO_RANDOMNESS, WEBAPID_WORKER},
                       channel.worker.Get()),
            0);
  webapid::ChannelMessage answer;
  ASSERT_EQ(webapid::ReceiveMessage(channel.front.Get(), answer), webapid::Received::kMessage);
  EXPECT_EQ(answer.flags, webapid::kRetiring);
  EXPECT_THAT(answer.body, testing::HasSubstr(R"("success":true)"));
}

TEST_F(StartUp, ABrokenModuleCostsItsOwnRowsOnly) {
  EXPECT_EQ(Stop(), 0);
  WriteTestFile("/usr/kalo/webapi/a.json", "{");
  WriteTestFile("/usr/kalo/webapi/b.json", R"({"library":"b.so","rows":[]})");
  WriteTestFile("/usr/kalo/webapi/b.so", "no module");
  Start();
  HttpClient client = SignedIn();
  EXPECT_EQ(Call(client, "echo").Code(), 0);
  EXPECT_TRUE(log_.WaitFor("webapid-worker: /usr/kalo/webapi/b.so: "));
  EXPECT_TRUE(log_.WaitFor("webapid: /usr/kalo/webapi/a.json: not well-formed JSON"));
}

TEST_F(StartUp, RecoveryProgramsRunAtTheStartAndAfterForks) {
  EXPECT_EQ(Stop(), 0);
  std::string description = ReadTestFile("/usr/kalo/webapi/template.json");
  WriteTestFile("/usr/kalo/webapi/template.json",
                description.replace(0, 1, R"({"recovery":"/run/template.recovery",)"));
  WriteTestFile("/run/template.recovery", "#!/bin/sh\nlogger -t recovery recovered\n");
  std::filesystem::permissions("/run/template.recovery", std::filesystem::perms::owner_all);
  Start();
  EXPECT_TRUE(log_.WaitFor("recovered"));
  const auto count = [this] {
    const std::string all = log_.All();
    std::size_t lines = 0;
    for (std::size_t at = all.find("recovered"); at != std::string::npos;
         at = all.find("recovered", at + 1))
      ++lines;
    return lines;
  };
  const std::size_t before = count();
  HttpClient client = SignedIn();
  EXPECT_EQ(Call(client, "fork_return").Code(), 0);
  EXPECT_TRUE(WaitFor([&] { return count() > before; }));
}

UniqueFd ListenAnywhere(int& port) {
  UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  EXPECT_EQ(bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(listen(fd.Get(), 5), 0);
  EXPECT_EQ(getsockname(fd.Get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
  port = ntohs(address.sin_port);
  return fd;
}

TEST_F(StartUp, AnInheritedSocketServesAdministratorsToo) {
  EXPECT_EQ(Stop(), 0);
  int port = 0;
  UniqueFd socket = ListenAnywhere(port);
  Start({"--listen-fd", "3"}, socket.Get());
  socket.Reset();
  HttpClient client("router.test", port, "/etc/kalo/mesh/ca.crt");
  EXPECT_EQ(client.Login(kAdmin, kPassword).Code(), 0);
  EXPECT_EQ(Call(client, "echo").Code(), 0);
  EXPECT_EQ(Call(client, "nodes").Code(), 7006);
}

TEST_F(StartUp, ADescriptorThatIsNoListenerIsRefused) {
  EXPECT_EQ(Stop(), 0);
  EXPECT_EQ(RunProgram({WEBAPID, "--listen-fd", "3"}), 1);
}

// A client that drips bytes is never silent, but its time is over all the same.
TEST_F(StartUp, ASlowSenderIsCutAtItsDeadline) {
  EXPECT_EQ(Stop(), 0);
  Configure(R"(,"limits":{"request_s":1})");
  Start();
  const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(curl_easy_init(),
                                                                   &curl_easy_cleanup);
  curl_easy_setopt(handle.get(), CURLOPT_URL, "https://127.0.0.1/");
  curl_easy_setopt(handle.get(), CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(handle.get(), CURLOPT_SSL_VERIFYHOST, 0L);
  curl_easy_setopt(handle.get(), CURLOPT_CONNECT_ONLY, 1L);
  ASSERT_EQ(curl_easy_perform(handle.get()), CURLE_OK);
  curl_socket_t socket = -1;
  curl_easy_getinfo(handle.get(), CURLINFO_ACTIVESOCKET, &socket);
  const std::string head = "GET / HTTP/1.1\r\nX: ";
  std::size_t sent = 0;
  ASSERT_EQ(curl_easy_send(handle.get(), head.data(), head.size(), &sent), CURLE_OK);
  const auto start = std::chrono::steady_clock::now();
  bool cut = false;
  while (!cut && std::chrono::steady_clock::now() - start < std::chrono::seconds(8)) {
    pollfd waiting{socket, POLLIN, 0};
    // TLS 1.3 sends session tickets first; only the end of the connection counts.
    if (poll(&waiting, 1, 100) > 0) {
      std::array<char, 256> bytes{};
      std::size_t got = 0;
      const CURLcode code = curl_easy_recv(handle.get(), bytes.data(), bytes.size(), &got);
      cut = code != CURLE_AGAIN && got == 0;
    }
    cut = cut || curl_easy_send(handle.get(), "x", 1, &sent) != CURLE_OK;
  }
  EXPECT_TRUE(cut);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
}

}  // namespace
}  // namespace kalo::test
