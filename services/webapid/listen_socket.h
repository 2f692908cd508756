#pragma once

#include <cstdint>
#include <string>

#include "host/core/unique_fd.h"

namespace kalo::webapid {

/// Opens a listening TCP socket.
/// @throws std::system_error naming address and port
[[nodiscard]] UniqueFd Listen(const std::string& address, std::uint16_t port);

/// Opens a listening socket in the file system that only its owner can connect to. One that an
/// earlier process left there is replaced.
/// @throws std::system_error naming the path
[[nodiscard]] UniqueFd ListenLocal(const std::string& path);

/// Takes over a listening socket that the process was started with.
/// @throws std::system_error when the descriptor is none
[[nodiscard]] UniqueFd InheritListener(int fd);

}  // namespace kalo::webapid
