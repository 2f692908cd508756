#include "host/update/curl_handle.h"

#include <mutex>
#include <stdexcept>

namespace kalo {

CurlHandle NewCurlHandle() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
  CurlHandle curl(curl_easy_init());
  if (!curl) throw std::runtime_error("the HTTP library cannot be started");
  return curl;
}

}  // namespace kalo
