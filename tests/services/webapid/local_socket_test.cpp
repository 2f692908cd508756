#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "platform/paths.h"
#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/session_file.h"
#include "tests/services/webapid/server_fixture.h"

namespace kalo::test {
namespace {

class LocalSocket : public ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    // It is the last that the server opens.
    ASSERT_TRUE(log_.WaitFor("serving 127.0.0.1"));
  }

  // @return the answer's data, or the error's code.
  static Json::Value CallRow(const std::string& api, const std::string& method,
                             const Json::Value& params = Json::objectValue) {
    cli::ApiClient client({std::string(cli::kUnixServer) + KALO::paths::kLocalSocket, "", "", ""},
                          std::chrono::seconds(5));
    try {
      return client.Call(api, 1, method, params);
    } catch (const cli::Refusal& e) {
      return e.Code();
    }
  }
};

TEST_F(LocalSocket, RootMayWhatAdministratorsMayWithoutASession) {
  Json::Value params(Json::objectValue);
  params["a"] = 1;
  EXPECT_TRUE(CallRow("KALO.Test", "echo", params).isObject());
}

TEST_F(LocalSocket, RootIsNoNodeAndNeedsNoSession) {
  EXPECT_EQ(CallRow("KALO.Test", "node_0"), 7006);
  EXPECT_EQ(CallRow("KALO.Test", "nothing"), 7002);
  EXPECT_EQ(CallRow("KALO.Core.Auth", "login"), 7002);
  EXPECT_EQ(CallRow("KALO.Core.Auth", "logout"), 7002);
}

TEST_F(LocalSocket, IsItsOwnersAlone) {
  struct stat status {};
  ASSERT_EQ(stat(KALO::paths::kLocalSocket, &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(LocalSocket, AnotherUserIsRefusedAlsoWhenTheModeWasLoosened) {
  ASSERT_EQ(chmod(KALO::paths::kLocalSocket, 0666), 0);
  ASSERT_EQ(chmod("/run/kalo", 0755), 0);
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(77);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, KALO::paths::kLocalSocket, sizeof(address.sun_path) - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) _exit(1);
    const std::string request =
        "POST /webapi/KALO.Test/1/echo HTTP/1.1\r\nHost: x\r\nConnection: close\r\n"
        "Content-Type: application/json\r\nContent-Length: 2\r\n\r\n{}";
    if (write(fd, request.data(), request.size()) < 0) _exit(2);
    std::string answer;
    char byte = 0;
    while (read(fd, &byte, 1) == 1) answer += byte;
    _exit(answer.find("7006") != std::string::npos ? 0 : 3);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "only one user here";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(LocalSocket, ASocketThatAKilledServerLeftIsReplaced) {
  (void)Stop(SIGKILL);
  Start();
  EXPECT_TRUE(CallRow("KALO.Test", "echo").isObject());
}

}  // namespace
}  // namespace kalo::test
