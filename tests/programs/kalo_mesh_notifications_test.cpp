// "kalo-mesh notifications" as root on the router runs it, against a server that answers as a test
// says.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "host/core/file_io.h"
#include "host/core/spawn.h"
#include "host/core/unique_fd.h"
#include "platform/paths.h"
#include "programs/kalo-mesh/failure.h"

namespace kalo::cli {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

// Answers one request on the socket of the web API server, and keeps it.
class OneAnswer {
 public:
  explicit OneAnswer(std::string body)
      : body_(std::move(body)), socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const fs::path path = KALO::paths::kLocalSocket;
    fs::create_directories(path.parent_path());
    fs::remove(path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (bind(socket_.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(socket_.Get(), 1) != 0) {
      throw std::runtime_error("no test server");
    }
    thread_ = std::thread([this] { Serve(); });
  }
  OneAnswer(const OneAnswer&) = delete;
  OneAnswer& operator=(const OneAnswer&) = delete;
  ~OneAnswer() {
    if (thread_.joinable()) (void)Request();
  }

  // @return the request, headers and body; empty when nobody asked.
  std::string Request() {
    shutdown(socket_.Get(), SHUT_RDWR);  // ends the wait of a server that nobody asked
    thread_.join();
    return request_;
  }

 private:
  void Serve() {
    const UniqueFd client(accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!client) return;
    char byte = 0;
    while (!IsWhole() && recv(client.Get(), &byte, 1, 0) == 1) request_ += byte;
    const std::string answer =
        "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body_.size()) +
        "\r\nConnection: close\r\n\r\n" + body_;
    (void)send(client.Get(), answer.data(), answer.size(), MSG_NOSIGNAL);
  }

  // Every request of the program is a flat JSON object.
  [[nodiscard]] bool IsWhole() const {
    return request_.find("\r\n\r\n") != std::string::npos && request_.ends_with('}');
  }

  std::string body_;
  std::string request_;
  UniqueFd socket_;
  std::thread thread_;
};

struct Result {
  int status = -1;
  std::string out;
  std::string err;
};

Result RunProgram(const std::vector<std::string>& words) {
  std::vector<std::string> argv = {KALO_MESH, "--local", "--connect-timeout", "0"};
  argv.insert(argv.end(), words.begin(), words.end());
  const UniqueFd out(open("/tmp/out", O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  const UniqueFd err(open("/tmp/err", O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  SpawnOptions options;
  options.stdout_fd = out.Get();
  options.stderr_fd = err.Get();
  const int status = WaitForExit(Spawn(argv, options));
  return {status, ReadFile("/tmp/out", 1 << 20).value_or(""),
          ReadFile("/tmp/err", 1 << 20).value_or("")};
}

std::string Success(const std::string& data) {
  return R"({"success":true,"data":)" + data + "}";
}

TEST(KaloMeshNotifications, SaysWhenThereAreNone) {
  OneAnswer server(Success(R"({"notifications":[]})"));
  const Result result = RunProgram({"notifications"});
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_EQ(result.out, "No notifications.\n");
  EXPECT_THAT(server.Request(), StartsWith("POST /webapi/KALO.Core.Notification/1/list "));
}

TEST(KaloMeshNotifications, ListsIdTimeAndText) {
  const OneAnswer server(Success(R"({"notifications":[)"
                                 R"({"id":12,"time":1767225600,"text":"second\u001b[31m"},)"
                                 R"({"id":7,"time":0,"text":"first"}]})"));
  const Result result = RunProgram({"notifications"});
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, StartsWith("ID"));
  EXPECT_THAT(result.out, testing::ContainsRegex("\n12 +20(25-12-31|26-01-01) [0-9:]+ +second"));
  EXPECT_THAT(result.out, testing::ContainsRegex("\n7 +19(69-12-31|70-01-01) [0-9:]+ +first"));
  EXPECT_EQ(result.out.find('\x1b'), std::string::npos) << "a terminal must not obey a text";
}

TEST(KaloMeshNotifications, PrintsTheAnswerAsItIsForScripts) {
  const std::string data = R"({"notifications":[{"id":7,"text":"first","time":0}]})";
  const OneAnswer server(Success(data));
  const Result result = RunProgram({"notifications", "--json"});
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_EQ(result.out, data + "\n");
}

TEST(KaloMeshNotifications, DismissesTheOneThatIsNamed) {
  OneAnswer server(Success("null"));
  const Result result = RunProgram({"notifications", "--dismiss", "7"});
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_EQ(result.out, "");
  const std::string request = server.Request();
  EXPECT_THAT(request, StartsWith("POST /webapi/KALO.Core.Notification/1/dismiss "));
  EXPECT_THAT(request, HasSubstr("\r\n\r\n{\"id\":7}"));
}

TEST(KaloMeshNotifications, WrongIdsAreWrongUsage) {
  OneAnswer server(Success("null"));
  for (const char* id : {"0", "-1", "x", "99999999999"}) {
    EXPECT_EQ(RunProgram({"notifications", "--dismiss", id}).status, kUsage) << id;
  }
  EXPECT_EQ(server.Request(), "") << "nothing may be asked";
}

TEST(KaloMeshNotifications, ARefusalIsTold) {
  const OneAnswer server(R"({"success":false,"error":{"code":117,"message":"It failed."}})");
  const Result result = RunProgram({"notifications"});
  EXPECT_EQ(result.status, kRefused);
  EXPECT_THAT(result.err, HasSubstr("It failed."));
}

TEST(KaloMeshNotifications, AnAnswerOfAnotherShapeIsNoCrash) {
  for (const char* data : {"null", "[]", R"({"notifications":{}})", R"({"notifications":[1]})",
                           R"({"notifications":[{"id":"x","time":"y","text":3}]})"}) {
    const OneAnswer server(Success(data));
    EXPECT_LT(RunProgram({"notifications"}).status, 128) << data;
  }
}

}  // namespace
}  // namespace kalo::cli
