#pragma once

#include <memory>

#include "host/update/curl_library.h"

namespace kalo {

struct CurlDeleter {
  void operator()(CURL* curl) const { Curl().easy_cleanup(curl); }
};
using CurlHandle = std::unique_ptr<CURL, CurlDeleter>;

/// @return a handle for transfers, which keeps its connections from one to the next.
/// @throws std::runtime_error
[[nodiscard]] CurlHandle NewCurlHandle();

}  // namespace kalo
