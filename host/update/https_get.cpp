#include "host/update/https_get.h"

#include <unistd.h>

#include <stdexcept>

#include "host/update/curl_handle.h"
#include "platform/paths.h"

namespace kalo {
namespace {

using Clock = std::chrono::steady_clock;

constexpr long kMostRedirects = 5;
constexpr long kStatusOk = 200;
constexpr long kStatusPart = 206;
constexpr std::chrono::milliseconds kLook{200};

class Fetch {
 public:
  Fetch(const HttpsRequest& request, const HttpsLimits& limits, BodySink& sink)
      : request_(request), limits_(limits), sink_(sink) {
    Set(CURLOPT_URL, request.url.c_str());
    Set(CURLOPT_PROTOCOLS_STR, request.url.starts_with("http:") ? "http,https" : "https");
    Set(CURLOPT_REDIR_PROTOCOLS_STR, "https");
    Set(CURLOPT_FOLLOWLOCATION, 1L);
    Set(CURLOPT_MAXREDIRS, kMostRedirects);
    Set(CURLOPT_HTTPGET, 1L);
    Set(CURLOPT_USERAGENT, "kalo-mesh");
    Set(CURLOPT_PROXY, "");
    Set(CURLOPT_NOSIGNAL, 1L);
    // Without it the end of a transfer waits for the C library's own look-up of a name.
    Set(CURLOPT_QUICK_EXIT, 1L);
    Set(CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
    Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limits.connect.count()));
    Set(CURLOPT_TIMEOUT_MS, static_cast<long>(limits.whole.count()));
    Set(CURLOPT_WRITEFUNCTION, &Fetch::OnBody);
    Set(CURLOPT_WRITEDATA, this);
    Set(CURLOPT_HEADERFUNCTION, &Fetch::OnHeader);
    Set(CURLOPT_HEADERDATA, this);
    Set(CURLOPT_ERRORBUFFER, error_.data());
    SetTls();
    if (request.from > 0) AskForRest();
  }

  FetchResult Run() {
    const CURLcode code = Transfer();
    FetchResult result;
    result.status = Status();
    // An empty body has no first piece.
    if (code == CURLE_OK && !end_ && IsWanted(result.status)) (void)Take({});
    result.outcome = Judge(code, result.status);
    if (result.outcome != FetchOutcome::kOk) result.error = Words(code, result);
    return result;
  }

 private:
  template <typename Value>
  void Set(CURLoption option, Value value) {
    const CURLcode result = Curl().easy_setopt(curl_.get(), option, value);
    if (result != CURLE_OK) throw std::runtime_error(Curl().easy_strerror(result));
  }

  void SetTls() {
    Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    Set(CURLOPT_SSL_VERIFYPEER, 1L);
    Set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (access(KALO::paths::kFeedAuthorities, F_OK) != 0) return;
    Set(CURLOPT_CAINFO, KALO::paths::kFeedAuthorities);
    Set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }

  void AskForRest() {
    Set(CURLOPT_RANGE, (std::to_string(request_.from) + "-").c_str());
    headers_.reset(Curl().slist_append(nullptr, ("If-Range: " + request_.tag).c_str()));
    if (!headers_) throw std::bad_alloc();
    Set(CURLOPT_HTTPHEADER, headers_.get());
  }

  [[nodiscard]] long Status() const {
    long status = 0;
    Curl().easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &status);
    return status;
  }

  [[nodiscard]] bool IsWanted(long status) const {
    return status == kStatusOk || (status == kStatusPart && request_.from > 0);
  }

  CURLcode Transfer() {
    window_begin_ = Clock::now();
    next_look_ = window_begin_;
    return PerformTransfer(curl_.get(), [this] {
      if (!end_) Look();
      return !end_;
    });
  }

  void Look() {
    const auto now = Clock::now();
    if (now < next_look_) return;
    next_look_ = now + kLook;
    if (limits_.is_cancelled && limits_.is_cancelled()) return End(FetchOutcome::kCancelled);
    if (now - window_begin_ < limits_.stall) return;
    if (taken_ - window_taken_ < limits_.slowest) return End(FetchOutcome::kTimeout);
    window_begin_ = now;
    window_taken_ = taken_;
  }

  [[nodiscard]] FetchOutcome Judge(CURLcode code, long status) const {
    if (end_) return *end_;
    switch (code) {
      case CURLE_OK:
        return IsWanted(status) ? FetchOutcome::kOk : FetchOutcome::kRefused;
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
      case FetchOutcome::kCancelled:
        return "cancelled";
      default:
        break;
    }
    if (end_ == FetchOutcome::kTimeout) return "the server sends too slowly";
    return error_.front() != '\0' ? error_.data() : Curl().easy_strerror(code);
  }

  void End(FetchOutcome outcome) { end_ = outcome; }

  static std::size_t OnBody(char* bytes, std::size_t size, std::size_t count, void* self) {
    return static_cast<Fetch*>(self)->Take({bytes, size * count}) ? size * count : 0;
  }

  bool Take(std::string_view piece) {
    if (!begun_ && !BeginBody()) return false;
    taken_ += piece.size();
    if (taken_ > limits_.bytes) {
      End(FetchOutcome::kTooLarge);
      return false;
    }
    if (sink_.Take(piece)) return true;
    End(FetchOutcome::kCannotStore);
    return false;
  }

  bool BeginBody() {
    begun_ = true;
    const long status = Status();
    curl_off_t length = -1;
    Curl().easy_getinfo(curl_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    if (!IsWanted(status)) {
      End(FetchOutcome::kRefused);  // nobody wants to read an error page
    } else if (length > 0 && static_cast<std::uint64_t>(length) > limits_.bytes) {
      End(FetchOutcome::kTooLarge);
    } else if (!sink_.Begin(status == kStatusPart ? request_.from : 0, tag_)) {
      End(FetchOutcome::kCannotStore);
    }
    return !end_;
  }

  static std::size_t OnHeader(char* bytes, std::size_t size, std::size_t count, void* self) {
    static_cast<Fetch*>(self)->TakeHeader({bytes, size * count});
    return size * count;
  }

  // A redirect's headers come first: each status line begins anew.
  void TakeHeader(std::string_view line) {
    constexpr std::string_view kName = "etag:";
    if (line.starts_with("HTTP/")) tag_.clear();
    if (line.size() <= kName.size()) return;
    for (std::size_t i = 0; i < kName.size(); ++i) {
      if ((line[i] | 0x20) != kName[i]) return;
    }
    line.remove_prefix(kName.size());
    while (line.starts_with(' ')) line.remove_prefix(1);
    while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.remove_suffix(1);
    if (line.starts_with('"')) tag_ = line;  // "W/…" names no bytes
  }

  struct ListEnd {
    void operator()(curl_slist* list) const { Curl().slist_free_all(list); }
  };

  // Both are used until the handle ends, so they stand before it.
  std::string error_ = std::string(CURL_ERROR_SIZE, '\0');
  std::unique_ptr<curl_slist, ListEnd> headers_;
  CurlHandle curl_ = NewCurlHandle();
  const HttpsRequest& request_;
  HttpsLimits limits_;
  BodySink& sink_;
  std::string tag_;
  std::optional<FetchOutcome> end_;
  bool begun_ = false;
  std::uint64_t taken_ = 0;
  Clock::time_point next_look_;
  Clock::time_point window_begin_;
  std::uint64_t window_taken_ = 0;
};

class TextSink : public BodySink {
 public:
  bool Begin(std::uint64_t /*from*/, const std::string& /*tag*/) override { return true; }
  bool Take(std::string_view piece) override {
    text += piece;
    return true;
  }

  std::string text;
};

}  // namespace

FetchResult HttpsGet(const HttpsRequest& request, const HttpsLimits& limits, BodySink& sink) {
  try {
    return Fetch(request, limits, sink).Run();
  } catch (const std::runtime_error& e) {
    return {FetchOutcome::kUnreachable, 0, e.what()};
  }
}

std::optional<std::string> HttpsGetText(const std::string& url, const HttpsLimits& limits,
                                        FetchResult& result) {
  TextSink sink;
  result = HttpsGet({url, 0, ""}, limits, sink);
  if (result.outcome != FetchOutcome::kOk) return std::nullopt;
  return std::move(sink.text);
}

}  // namespace kalo
