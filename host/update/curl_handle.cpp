#include "host/update/curl_handle.h"

#include <stdexcept>

namespace kalo {

CurlHandle NewCurlHandle() {
  CurlHandle curl(Curl().easy_init());
  if (!curl) throw std::runtime_error("the HTTP library cannot be started");
  return curl;
}

}  // namespace kalo
