#include "services/webapid/worker_channel.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>

namespace kalo::webapid {
namespace {

TEST(WorkerChannel, MessagesOfEverySizeArriveWhole) {
  const ChannelPair pair = MakeChannel();
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{1}, kInlineBody, kInlineBody + 1, std::size_t{5} << 20}) {
    const std::string body(size, 'b');
    ASSERT_TRUE(SendMessage(pair.front.Get(), kRetiring, body));
    ChannelMessage message;
    ASSERT_EQ(ReceiveMessage(pair.worker.Get(), message), Received::kMessage) << size;
    EXPECT_EQ(message.body, body);
    EXPECT_EQ(message.flags, kRetiring);
  }
}

TEST(WorkerChannel, TheFrontNeverWaits) {
  const ChannelPair pair = MakeChannel();
  ChannelMessage message;
  EXPECT_EQ(ReceiveMessage(pair.front.Get(), message), Received::kNothingYet);
}

TEST(WorkerChannel, TheEndOfTheOtherSideIsSeen) {
  ChannelPair pair = MakeChannel();
  pair.worker.Reset();
  ChannelMessage message;
  EXPECT_EQ(ReceiveMessage(pair.front.Get(), message), Received::kClosed);
  EXPECT_FALSE(SendMessage(pair.front.Get(), 0, "x"));
}

TEST(WorkerChannel, WhatIsNoMessageIsBroken) {
  const ChannelPair pair = MakeChannel();
  ChannelMessage message;
  const std::array<unsigned, 2> wrong_size = {0, 7};
  const std::array<unsigned, 2> no_file = {0x80000000, 7};
  for (const auto& header : {wrong_size, no_file}) {
    ASSERT_GT(send(pair.front.Get(), header.data(), sizeof(header), 0), 0);
    EXPECT_EQ(ReceiveMessage(pair.worker.Get(), message), Received::kBroken);
  }
  ASSERT_GT(send(pair.front.Get(), "x", 1, 0), 0);
  EXPECT_EQ(ReceiveMessage(pair.worker.Get(), message), Received::kBroken);
}

TEST(WorkerChannel, TooMuchIsNotSent) {
  const ChannelPair pair = MakeChannel();
  EXPECT_FALSE(SendMessage(pair.front.Get(), 0, std::string(kLargestBody + 1, 'x')));
}

TEST(WorkerChannel, NoProgramInheritsIt) {
  const ChannelPair pair = MakeChannel();
  EXPECT_EQ(fcntl(pair.front.Get(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(pair.worker.Get(), F_GETFD), FD_CLOEXEC);
}

}  // namespace
}  // namespace kalo::webapid
