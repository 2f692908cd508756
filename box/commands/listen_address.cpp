#include "box/commands/listen_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <stdexcept>
#include <system_error>

namespace kalo::box {
namespace {

constexpr int kBacklog = 128;

sockaddr_in Parse(const std::string& text, std::string& host) {
  const std::size_t colon = text.find(':');
  sockaddr_in address{};
  address.sin_family = AF_INET;
  std::uint16_t port = 0;
  const char* end = text.data() + text.size();
  host = text.substr(0, colon);
  if (colon == std::string::npos ||
      std::from_chars(text.data() + colon + 1, end, port).ptr != end ||
      inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
    throw std::runtime_error("\"" + text + "\" is no address and port like 127.0.0.1:8443");
  }
  address.sin_port = htons(port);
  return address;
}

}  // namespace

Listening Listen(const std::string& text) {
  Listening listening;
  sockaddr_in address = Parse(text, listening.address);
  auto* generic = reinterpret_cast<sockaddr*>(&address);  // NOLINT(*-reinterpret-cast)
  listening.fd.Reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int fd = listening.fd.Get();
  const int one = 1;
  socklen_t size = sizeof address;
  if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0 ||
      bind(fd, generic, size) != 0 || listen(fd, kBacklog) != 0 ||
      getsockname(fd, generic, &size) != 0) {
    throw std::system_error(errno, std::generic_category(), text);
  }
  listening.port = ntohs(address.sin_port);
  return listening;
}

}  // namespace kalo::box
