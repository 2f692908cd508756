#pragma once

#include <functional>
#include <memory>

#include "host/update/curl_library.h"

namespace kalo {

struct CurlDeleter {
  void operator()(CURL* curl) const { Curl().easy_cleanup(curl); }
};
using CurlHandle = std::unique_ptr<CURL, CurlDeleter>;

struct CurlMultiDeleter {
  void operator()(CURLM* multi) const { Curl().multi_cleanup(multi); }
};
using CurlMultiHandle = std::unique_ptr<CURLM, CurlMultiDeleter>;

/// Runs one transfer like curl_easy_perform, which looks around only once a second.
/// @param goes_on asked at least five times a second; false ends the transfer
/// @return CURLE_ABORTED_BY_CALLBACK if it was ended.
[[nodiscard]] CURLcode PerformTransfer(CURL* curl, const std::function<bool()>& goes_on);

/// @return a handle for transfers, which keeps its connections from one to the next.
/// @throws std::runtime_error
[[nodiscard]] CurlHandle NewCurlHandle();

}  // namespace kalo
