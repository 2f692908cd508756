#include "host/update/curl_handle.h"

#include <stdexcept>

namespace kalo {

CurlHandle NewCurlHandle() {
  CurlHandle curl(Curl().easy_init());
  if (!curl) throw std::runtime_error("the HTTP library cannot be started");
  return curl;
}

CURLcode PerformTransfer(CURL* curl, const std::function<bool()>& goes_on) {
  constexpr int kLookMilliseconds = 200;
  const CurlMultiHandle multi(Curl().multi_init());
  if (!multi || Curl().multi_add_handle(multi.get(), curl) != CURLM_OK) return CURLE_OUT_OF_MEMORY;
  int running = 1;
  while (goes_on() && Curl().multi_perform(multi.get(), &running) == CURLM_OK && running > 0) {
    Curl().multi_poll(multi.get(), nullptr, 0, kLookMilliseconds, nullptr);
  }
  int left = 0;
  const CURLMsg* message = Curl().multi_info_read(multi.get(), &left);
  const CURLcode code = message != nullptr ? message->data.result : CURLE_ABORTED_BY_CALLBACK;
  Curl().multi_remove_handle(multi.get(), curl);
  return code;
}

}  // namespace kalo
