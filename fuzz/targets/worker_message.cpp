// A message on the channel between the web API server and a worker.

#include <sys/socket.h>

#include "fuzz/fuzz_target.h"
#include "services/webapid/worker_channel.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  using namespace kalo::webapid;
  constexpr std::size_t kMost = std::size_t{128} << 10;
  if (size > kMost) return 0;
  const ChannelPair channel = MakeChannel();
  if (send(channel.worker.Get(), data, size, 0) < 0) return 0;
  ChannelMessage message;
  (void)ReceiveMessage(channel.front.Get(), message);
  const std::string text = TextOf(data, size);
  Require(SendMessage(channel.worker.Get(), kRetiring, text), "what is no message can be a body");
  Require(ReceiveMessage(channel.front.Get(), message) == Received::kMessage, "it comes");
  Require(message.body == text && message.flags == kRetiring, "it comes as it was sent");
  return 0;
}
