#include "host/update/https_get.h"

#include <unistd.h>

#include <stdexcept>

#include "host/update/curl_handle.h"
#include "platform/paths.h"

namespace kalo {
namespace {

using Clock = std::chrono::steady_clock;

constexpr long kMostRedirects = 5;
constexpr long kOk = 200;

class Fetch {
 public:
  Fetch(const std::string& url, const HttpsLimits& limits, const BodySink& sink)
      : limits_(limits), sink_(sink) {
    Set(CURLOPT_URL, url.c_str());
    Set(CURLOPT_PROTOCOLS_STR, url.starts_with("http:") ? "http" : "https");
    Set(CURLOPT_REDIR_PROTOCOLS_STR, "https");
    Set(CURLOPT_FOLLOWLOCATION, 1L);
    Set(CURLOPT_MAXREDIRS, kMostRedirects);
    Set(CURLOPT_HTTPGET, 1L);
    Set(CURLOPT_USERAGENT, "kalo-mesh");
    Set(CURLOPT_PROXY, "");
    Set(CURLOPT_NOSIGNAL, 1L);
    Set(CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
    SetTls();
    Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limits.connect.count()));
    Set(CURLOPT_TIMEOUT_MS, static_cast<long>(limits.whole.count()));
    Set(CURLOPT_WRITEFUNCTION, &Fetch::OnBody);
    Set(CURLOPT_WRITEDATA, this);
    Set(CURLOPT_NOPROGRESS, 0L);
    Set(CURLOPT_XFERINFOFUNCTION, &Fetch::OnProgress);
    Set(CURLOPT_XFERINFODATA, this);
  }

  FetchResult Run() {
    Set(CURLOPT_ERRORBUFFER, error_.data());
    moved_at_ = Clock::now();
    const CURLcode code = curl_easy_perform(curl_.get());
    FetchResult result;
    curl_easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &result.status);
    result.outcome = Judge(code, result.status);
    if (result.outcome != FetchOutcome::kOk) result.error = Words(code, result);
    return result;
  }

 private:
  template <typename Value>
  void Set(CURLoption option, Value value) {
    const CURLcode result = curl_easy_setopt(curl_.get(), option, value);
    if (result != CURLE_OK) throw std::runtime_error(curl_easy_strerror(result));
  }

  void SetTls() {
    Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    Set(CURLOPT_SSL_VERIFYPEER, 1L);
    Set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (access(KALO::paths::kFeedAuthorities, F_OK) != 0) return;
    Set(CURLOPT_CAINFO, KALO::paths::kFeedAuthorities);
    Set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }

  [[nodiscard]] FetchOutcome Judge(CURLcode code, long status) const {
    if (end_) return *end_;
    switch (code) {
      case CURLE_OK:
        return status == kOk ? FetchOutcome::kOk : FetchOutcome::kRefused;
      case CURLE_OPERATION_TIMEDOUT:
        return FetchOutcome::kTimeout;
      case CURLE_PEER_FAILED_VERIFICATION:
      case CURLE_SSL_CACERT_BADFILE:
      case CURLE_SSL_ISSUER_ERROR:
        return FetchOutcome::kUntrusted;
      default:
        return FetchOutcome::kUnreachable;
    }
  }

  [[nodiscard]] std::string Words(CURLcode code, const FetchResult& result) const {
    switch (result.outcome) {
      case FetchOutcome::kRefused:
        return "the server answers with status " + std::to_string(result.status);
      case FetchOutcome::kTooLarge:
        return "the answer is larger than " + std::to_string(limits_.bytes) + " bytes";
      case FetchOutcome::kCannotStore:
        return "the answer cannot be stored";
      default:
        break;
    }
    if (end_ == FetchOutcome::kTimeout) return "the server sends nothing";
    return error_.front() != '\0' ? error_.data() : curl_easy_strerror(code);
  }

  // Ends the transfer from within a callback.
  void End(FetchOutcome outcome) { end_ = outcome; }

  static std::size_t OnBody(char* bytes, std::size_t size, std::size_t count, void* self) {
    return static_cast<Fetch*>(self)->Take({bytes, size * count}) ? size * count : 0;
  }

  bool Take(std::string_view piece) {
    moved_at_ = Clock::now();
    long status = 0;
    curl_easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status != kOk) {
      End(FetchOutcome::kRefused);  // nobody wants to read an error page
      return false;
    }
    taken_ += piece.size();
    if (taken_ > limits_.bytes) {
      End(FetchOutcome::kTooLarge);
      return false;
    }
    if (sink_(piece)) return true;
    End(FetchOutcome::kCannotStore);
    return false;
  }

  static int OnProgress(void* self, curl_off_t total, curl_off_t now, curl_off_t /*up_total*/,
                        curl_off_t /*up*/) {
    return static_cast<Fetch*>(self)->GoesOn(total, now) ? 0 : 1;
  }

  // The library's own stall limit counts in whole seconds and below one byte a second.
  bool GoesOn(curl_off_t total, curl_off_t now) {
    if (now != moved_to_) {
      moved_to_ = now;
      moved_at_ = Clock::now();
    }
    if (total > 0 && static_cast<std::uint64_t>(total) > limits_.bytes) {
      long status = 0;
      curl_easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &status);
      if (status == kOk) End(FetchOutcome::kTooLarge);
    } else if (Clock::now() - moved_at_ > limits_.stall) {
      End(FetchOutcome::kTimeout);
    }
    return !end_;
  }

  CurlHandle curl_ = NewCurlHandle();
  HttpsLimits limits_;
  const BodySink& sink_;
  std::string error_ = std::string(CURL_ERROR_SIZE, '\0');
  std::optional<FetchOutcome> end_;
  std::uint64_t taken_ = 0;
  curl_off_t moved_to_ = 0;
  Clock::time_point moved_at_;
};

}  // namespace

FetchResult HttpsGet(const std::string& url, const HttpsLimits& limits, const BodySink& sink) {
  try {
    return Fetch(url, limits, sink).Run();
  } catch (const std::runtime_error& e) {
    return {FetchOutcome::kUnreachable, 0, e.what()};
  }
}

std::optional<std::string> HttpsGetText(const std::string& url, const HttpsLimits& limits,
                                        FetchResult& result) {
  std::string text;
  result = HttpsGet(url, limits, [&text](std::string_view piece) {
    text += piece;
    return true;
  });
  if (result.outcome != FetchOutcome::kOk) return std::nullopt;
  return text;
}

}  // namespace kalo
