#include "tests/support/log_socket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

#include "tests/support/wait.h"

namespace kalo::test {
namespace {

constexpr const char* kPath = "/dev/log";

}  // namespace

LogSocket::LogSocket() : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  unlink(kPath);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, kPath, sizeof(address.sun_path) - 1);
  if (bind(socket_.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
    throw std::runtime_error("cannot bind /dev/log");
  }
  receiver_ = std::thread([this] { Receive(); });
}

LogSocket::~LogSocket() {
  shutdown(socket_.Get(), SHUT_RDWR);
  receiver_.join();
  unlink(kPath);
}

void LogSocket::Receive() {
  std::array<char, 4096> line{};
  while (true) {
    const ssize_t size = recv(socket_.Get(), line.data(), line.size(), 0);
    if (size <= 0) return;
    const std::lock_guard lock(mutex_);
    lines_.emplace_back(line.data(), static_cast<std::size_t>(size));
  }
}

bool LogSocket::WaitFor(const std::string& text) {
  return test::WaitFor([&] {
    const std::lock_guard lock(mutex_);
    return std::any_of(lines_.begin(), lines_.end(), [&](const std::string& line) {
      return line.find(text) != std::string::npos;
    });
  });
}

std::string LogSocket::All() {
  const std::lock_guard lock(mutex_);
  std::string all;
  for (const std::string& line : lines_) all += line + "\n";
  return all;
}

}  // namespace kalo::test
