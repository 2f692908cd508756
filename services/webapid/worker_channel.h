#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/core/unique_fd.h"

namespace kalo::webapid {

/// The channel between front and worker: a SOCK_SEQPACKET socket pair, one message for a request
/// and one back. A message is a header and a body of text; a body over 64 KiB travels beside
/// the message as a memory file that nobody can change any more.
///
/// Request:  API VERSION METHOD, a line end, the parameters as a JSON object
/// Answer:   the envelope, as the client gets it
inline constexpr std::size_t kInlineBody = std::size_t{64} << 10;
inline constexpr std::size_t kLargestBody = std::size_t{64} << 20;

/// The worker serves no other request and ends: its request forked, and the worker's copies of
/// locks must go with it; or something that lasts as long as the process keeps it from serving.
inline constexpr std::uint32_t kRetiring = 1;

struct ChannelMessage {
  std::uint32_t flags = 0;
  std::string body;
};

enum class Received {
  kMessage,
  kNothingYet,  ///< only on a socket that does not block
  kClosed,
  kBroken,  ///< not a message as above, or errno says why
};

struct ChannelPair {
  UniqueFd front;   ///< does not block
  UniqueFd worker;  ///< blocks
};

/// @return both ends, close-on-exec.
/// @throws std::system_error
[[nodiscard]] ChannelPair MakeChannel();

/// @return false with errno set when the message could not be sent.
[[nodiscard]] bool SendMessage(int fd, std::uint32_t flags, std::string_view body);

/// @param message receives the message; untouched unless the result is kMessage
[[nodiscard]] Received ReceiveMessage(int fd, ChannelMessage& message);

}  // namespace kalo::webapid
