#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// Fetching from outside the mesh. The server's certificate is always checked: against the
/// authorities in /etc.defaults/kalo/feed-ca.crt when that file exists, else against the machine's
/// own. Redirects are followed to https only; plain http only when the address itself says so.
namespace kalo {

struct HttpsLimits {
  std::chrono::milliseconds connect{10000};  ///< until the connection stands, TLS included
  std::chrono::milliseconds stall{30000};    ///< the longest time in which no byte comes
  std::chrono::milliseconds whole{60000};    ///< for everything
  std::uint64_t bytes = std::uint64_t{1} << 20;
};

/// What a fetch ended with.
enum class FetchOutcome {
  kOk,
  kRefused,      ///< a status other than 200
  kUntrusted,    ///< the server's certificate does not hold
  kUnreachable,  ///< no connection, or it broke before the whole answer was there
  kTimeout,
  kTooLarge,
  kCannotStore,  ///< the sink took no more
};

struct FetchResult {
  FetchOutcome outcome = FetchOutcome::kUnreachable;
  long status = 0;    ///< HTTP status; 0 when there was none
  std::string error;  ///< what went wrong, for a log; empty when nothing did
};

/// Takes one piece of a body. @return false: it cannot be stored.
using BodySink = std::function<bool(std::string_view piece)>;

/// Fetches by GET. The sink gets bytes of a 200 answer only; when the outcome is not kOk, what it
/// got is not the whole answer.
[[nodiscard]] FetchResult HttpsGet(const std::string& url, const HttpsLimits& limits,
                                   const BodySink& sink);

/// @param result receives how it went
/// @return the whole body; empty unless the whole answer came with 200.
[[nodiscard]] std::optional<std::string> HttpsGetText(const std::string& url,
                                                      const HttpsLimits& limits,
                                                      FetchResult& result);

}  // namespace kalo
