#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/core/file_io.h"
#include "host/core/spawn.h"
#include "host/core/unique_fd.h"
#include "platform/paths.h"

namespace kalo::test {

/// Answers on the socket of the web API server as a test says, one connection after the other, each
/// of which brings one request.
class LocalServer {
 public:
  /// @param answer gives the body for a request's row, "KALO.Core.Mesh/1/nodes"
  explicit LocalServer(std::function<std::string(const std::string& row)> answer)
      : answer_(std::move(answer)), socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const std::filesystem::path path = KALO::paths::kLocalSocket;
    std::filesystem::create_directories(path.parent_path());
    std::filesystem::remove(path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (bind(socket_.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(socket_.Get(), 8) != 0) {
      throw std::runtime_error("no test server");
    }
    thread_ = std::thread([this] { Serve(); });
  }
  /// The same body for every row.
  explicit LocalServer(const std::string& body)
      : LocalServer([body](const std::string&) { return body; }) {}
  LocalServer(const LocalServer&) = delete;
  LocalServer& operator=(const LocalServer&) = delete;
  ~LocalServer() { End(); }

  /// Ends the server.
  /// @return the last request, headers and body; empty when nobody asked.
  std::string Request() {
    End();
    return request_;
  }

 private:
  void End() {
    if (!thread_.joinable()) return;
    shutdown(socket_.Get(), SHUT_RDWR);
    thread_.join();
  }

  void Serve() {
    for (;;) {
      const UniqueFd client(accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!client) return;
      request_.clear();
      char byte = 0;
      while (!IsWhole() && recv(client.Get(), &byte, 1, 0) == 1) request_ += byte;
      constexpr std::string_view kBegin = "POST /webapi/";
      const std::size_t end = request_.find(' ', kBegin.size());
      const std::string row =
          request_.starts_with(kBegin) ? request_.substr(kBegin.size(), end - kBegin.size()) : "";
      const std::string body = answer_(row);
      const std::string answer =
          "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) +
          "\r\nConnection: close\r\n\r\n" + body;
      (void)send(client.Get(), answer.data(), answer.size(), MSG_NOSIGNAL);
    }
  }

  // Every request of the program is a flat JSON object.
  [[nodiscard]] bool IsWhole() const {
    return request_.find("\r\n\r\n") != std::string::npos && request_.ends_with('}');
  }

  std::function<std::string(const std::string&)> answer_;
  std::string request_;
  UniqueFd socket_;
  std::thread thread_;
};

/// @return the envelope of a success.
[[nodiscard]] inline std::string Success(const std::string& data) {
  return R"({"success":true,"data":)" + data + "}";
}

struct Result {
  int status = -1;
  std::string out;
  std::string err;
};

/// Runs kalo-mesh as root on the router does.
[[nodiscard]] inline Result RunKaloMesh(const std::vector<std::string>& words) {
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

}  // namespace kalo::test
