#pragma once

#include <cstdint>
#include <string>

#include "host/core/unique_fd.h"

namespace kalo::box {

/// A listening socket on the machine.
struct Listening {
  UniqueFd fd;
  std::string address;
  std::uint16_t port = 0;  ///< the one in use, also when any was asked for
};

/// @param text IPv4 address and port, "127.0.0.1:0"; port 0 takes a free one
/// @throws std::runtime_error, std::system_error
[[nodiscard]] Listening Listen(const std::string& text);

}  // namespace kalo::box
