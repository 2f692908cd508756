#pragma once

#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kalo::webapid {

/// What /etc/kalo/webapid.json says.
struct Configuration {
  std::string address;  ///< numeric IPv4 or IPv6 address that both ports listen on
  std::uint16_t admin_port = 0;
  std::uint16_t mesh_port = 0;
  std::vector<std::string> host_names;  ///< of the administration port, besides its certificate's

  std::chrono::seconds session_idle{900};
  std::chrono::seconds session_absolute{43200};

  std::size_t admin_workers = 4;  ///< at most; one of them is kept free for polls
  std::size_t mesh_workers = 3;

  std::chrono::seconds request_time{30};   ///< for headers and body of a request without files
  std::chrono::seconds upload_time{3600};  ///< for a request with files
  unsigned connections = 100;              ///< per port, half of them for one address
  std::uint64_t upload_bytes = std::uint64_t{512} << 20;
};

/// @param name names the text in errors
/// @throws FormatError naming the member and what is wrong with it
[[nodiscard]] Configuration ParseConfiguration(const std::string& text, const std::string& name);

/// Reads the file.
/// @throws FormatError
[[nodiscard]] Configuration ReadConfiguration(const std::string& path);

/// @return the socket address of one of the ports; `length` receives its size.
[[nodiscard]] sockaddr_storage SocketAddress(const std::string& address, std::uint16_t port,
                                             socklen_t& length);

}  // namespace kalo::webapid
