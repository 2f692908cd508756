#include "services/webapid/listen_socket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "services/webapid/configuration.h"

namespace kalo::webapid {

UniqueFd Listen(const std::string& address, std::uint16_t port) {
  socklen_t length = 0;
  const sockaddr_storage storage = SocketAddress(address, port, length);
  UniqueFd socket(::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  if (!socket || setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
      bind(socket.Get(), reinterpret_cast<const sockaddr*>(&storage), length) != 0 ||
      listen(socket.Get(), SOMAXCONN) != 0) {
    throw std::system_error(errno, std::generic_category(),
                            "cannot listen on " + address + " port " + std::to_string(port));
  }
  return socket;
}

UniqueFd ListenLocal(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const bool gone = unlink(path.c_str()) == 0 || errno == ENOENT;
  // Its folder is root's alone, so nobody connects before the mode is set.
  if (!socket || !gone ||
      bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      chmod(path.c_str(), 0600) != 0 || listen(socket.Get(), SOMAXCONN) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot listen on " + path);
  }
  return socket;
}

UniqueFd InheritListener(int fd) {
  int listening = 0;
  socklen_t length = sizeof(listening);
  if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &length) != 0 || listening == 0) {
    throw std::system_error(listening == 0 && errno == 0 ? EINVAL : errno, std::generic_category(),
                            "descriptor " + std::to_string(fd) + " is no listening socket");
  }
  if (fcntl(fd, F_SETFD, FD_CLOEXEC) != 0 || fcntl(fd, F_SETFL, O_NONBLOCK) != 0) {
    throw std::system_error(errno, std::generic_category(), "fcntl");
  }
  return UniqueFd(fd);
}

}  // namespace kalo::webapid
