#pragma once

#include <microhttpd.h>

#include <string>
#include <utility>
#include <vector>

namespace kalo::webapid {

/// One HTTP answer.
struct Reply {
  unsigned status = 200;
  std::string body;
  std::string type = "application/json";
  std::vector<std::pair<std::string, std::string>> headers;  ///< besides those every answer has
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
