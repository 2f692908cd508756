#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/core/unique_fd.h"

namespace kalo::test {

/// One connection of a ScriptServer, after the request's headers were read.
class ScriptClient {
 public:
  ScriptClient(int fd, std::string request) : fd_(fd), request_(std::move(request)) {}

  [[nodiscard]] const std::string& Request() const { return request_; }
  /// @return whether the client is still there.
  bool Send(std::string_view bytes) const {
    return send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
  }
  /// Waits until the client goes away.
  void WaitForEnd() const {
    char byte = 0;
    while (recv(fd_, &byte, 1, 0) > 0) continue;
  }

 private:
  int fd_;
  std::string request_;
};

/// A plain HTTP server on loopback that answers as a test says: each connection runs the script and
/// is closed.
class ScriptServer {
 public:
  using Script = std::function<void(const ScriptClient&)>;

  explicit ScriptServer(Script script)
      : script_(std::move(script)), socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (!socket_ || bind(socket_.Get(), generic, length) != 0 || listen(socket_.Get(), 8) != 0 ||
        getsockname(socket_.Get(), generic, &length) != 0) {
      throw std::runtime_error("no test server");
    }
    url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    thread_ = std::thread([this] { Run(); });
  }
  ScriptServer(const ScriptServer&) = delete;
  ScriptServer& operator=(const ScriptServer&) = delete;
  ~ScriptServer() {
    ended_ = true;
    shutdown(socket_.Get(), SHUT_RDWR);
    thread_.join();
  }

  [[nodiscard]] const std::string& Url() const { return url_; }
  /// @return the requests so far, headers and all.
  [[nodiscard]] std::vector<std::string> Requests() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return requests_;
  }

  /// @return a whole answer with this body.
  [[nodiscard]] static std::string Answer(const std::string& status, const std::string& body,
                                          const std::string& headers = "") {
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
           headers + "Connection: close\r\n\r\n" + body;
  }

 private:
  void Run() {
    while (!ended_) {
      const UniqueFd client(accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!client) continue;
      std::string request;
      char byte = 0;
      while (!request.ends_with("\r\n\r\n") && recv(client.Get(), &byte, 1, 0) == 1)
        request += byte;
      {
        const std::lock_guard<std::mutex> guard(mutex_);
        requests_.push_back(request);
      }
      script_(ScriptClient(client.Get(), request));
    }
  }

  Script script_;
  UniqueFd socket_;
  std::string url_;
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
  std::atomic<bool> ended_ = false;
  std::thread thread_;
};

}  // namespace kalo::test
