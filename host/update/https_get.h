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

/// Whether a job is no longer wanted. One such token covers all steps of a job: lists, files,
/// copies to nodes. Asked five times a second, also while nothing moves. Empty: nothing cancels the
/// job.
using Cancellation = std::function<bool()>;

struct HttpsLimits {
  std::chrono::milliseconds connect{10000};  ///< until the connection stands, TLS included
  std::chrono::milliseconds stall{30000};    ///< the longest time in which too little comes
  std::uint64_t slowest = 1;                 ///< bytes that must come in each such time
  std::chrono::milliseconds whole{60000};    ///< for everything
  std::uint64_t bytes = std::uint64_t{1} << 20;
  Cancellation is_cancelled = {};
};

/// What is asked for.
struct HttpsRequest {
  std::string url;
  std::uint64_t from = 0;  ///< bytes that one has already: the rest is asked for
  std::string tag;         ///< what the server called the contents of which one has a part
};

/// What a fetch ended with.
enum class FetchOutcome {
  kOk,
  kRefused,      ///< a status other than 200, or 206 where a rest was asked for
  kUntrusted,    ///< the server's certificate does not hold
  kUnreachable,  ///< no connection, or it broke before the whole answer was there
  kTimeout,
  kTooLarge,
  kCannotStore,  ///< the sink took no more
  kCancelled,
};

struct FetchResult {
  FetchOutcome outcome = FetchOutcome::kUnreachable;
  long status = 0;    ///< HTTP status; 0 when there was none
  std::string error;  ///< what went wrong, for a log; empty when nothing did
};

/// Takes a body piece by piece. When the outcome is not kOk, what it got is not the whole.
class BodySink {
 public:
  BodySink() = default;
  BodySink(const BodySink&) = delete;
  BodySink& operator=(const BodySink&) = delete;
  virtual ~BodySink() = default;

  /// Called before the first piece.
  /// @param from the body's place in the whole: 0 when the server sends everything, also when only
  ///             a rest was asked for
  /// @param tag  what the server calls these contents; empty when it has no strong name for them
  /// @return false: it cannot be stored.
  virtual bool Begin(std::uint64_t from, const std::string& tag) = 0;
  /// @return false: it cannot be stored.
  virtual bool Take(std::string_view piece) = 0;
};

/// Fetches by GET, and waits for the end.
[[nodiscard]] FetchResult HttpsGet(const HttpsRequest& request, const HttpsLimits& limits,
                                   BodySink& sink);

/// @param result receives how it went
/// @return the whole body; empty unless the whole answer came with 200.
[[nodiscard]] std::optional<std::string> HttpsGetText(const std::string& url,
                                                      const HttpsLimits& limits,
                                                      FetchResult& result);

}  // namespace kalo
