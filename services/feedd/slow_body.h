#pragma once

#include <microhttpd.h>

#include <cstdint>

#include "host/core/unique_fd.h"

namespace kalo::feedd {

/// @return a response whose body is a part of a file, at no more than so many bytes a second: the
///         line that owners have. Its reader waits, so the connection needs a thread of its own.
[[nodiscard]] MHD_Response* SlowResponse(UniqueFd file, std::uint64_t first, std::uint64_t length,
                                         std::uint64_t bytes_per_second);

}  // namespace kalo::feedd
