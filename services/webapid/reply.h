#pragma once

#include <microhttpd.h>

#include <string>
#include <utility>
#include <vector>

namespace kalo::webapid {

class EventStream;

/// One HTTP answer.
struct Reply {
  unsigned status = 200;
  std::string body;
  std::string type = "application/json";
  /// Besides those that every answer has, or instead of one of them.
  std::vector<std::pair<std::string, std::string>> headers;
  EventStream* stream = nullptr;  ///< the body comes from here, as long as it lasts
};

/// @return the envelope of one of the server's own errors, with its HTTP status.
[[nodiscard]] Reply ErrorReply(int code);

/// @return as above, with the time after which another try makes sense.
[[nodiscard]] Reply RetryReply(int code, long seconds);

/// @return an envelope as it is, with status 200.
[[nodiscard]] Reply EnvelopeReply(std::string envelope);

/// Hands the answer to the connection.
[[nodiscard]] MHD_Result QueueReply(MHD_Connection* connection, const Reply& reply);

}  // namespace kalo::webapid
