#pragma once

#include <curl/curl.h>

#include <memory>

namespace kalo {

struct CurlDeleter {
  void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};
using CurlHandle = std::unique_ptr<CURL, CurlDeleter>;

/// @return a handle for transfers, which keeps its connections from one to the next.
/// @throws std::runtime_error
[[nodiscard]] CurlHandle NewCurlHandle();

}  // namespace kalo
