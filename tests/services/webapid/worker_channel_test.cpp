#include "services/webapid/worker_channel.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

namespace kalo::webapid {
namespace {

constexpr unsigned kInMemoryFile = 0x80000000;

// Sends a packet with the reading ends of pipes beside it.
void SendWithPipes(int fd, std::string packet, std::size_t count) {
  std::vector<UniqueFd> ends;
  std::vector<int> numbers;
  while (numbers.size() < count) {
    std::array<int, 2> both{};
    ASSERT_EQ(pipe2(both.data(), O_CLOEXEC), 0);
    ends.emplace_back(both[0]);
    ends.emplace_back(both[1]);
    numbers.push_back(both[0]);
  }
  std::vector<char> control(CMSG_SPACE(count * sizeof(int)));
  iovec part{packet.data(), packet.size()};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr* files = CMSG_FIRSTHDR(&message);
  files->cmsg_level = SOL_SOCKET;
  files->cmsg_type = SCM_RIGHTS;
  files->cmsg_len = CMSG_LEN(count * sizeof(int));
  std::memcpy(CMSG_DATA(files), numbers.data(), count * sizeof(int));
  ASSERT_GE(sendmsg(fd, &message, 0), 0);
}

std::string HeaderOf(unsigned flags, unsigned size) {
  const std::array<unsigned, 2> header = {flags, size};
  return {reinterpret_cast<const char*>(header.data()), sizeof(header)};
}

std::ptrdiff_t OpenDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return std::distance(begin(entries), end(entries));
}

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
  const std::array<unsigned, 2> no_file = {kInMemoryFile, 7};
  for (const auto& header : {wrong_size, no_file}) {
    ASSERT_GT(send(pair.front.Get(), header.data(), sizeof(header), 0), 0);
    EXPECT_EQ(ReceiveMessage(pair.worker.Get(), message), Received::kBroken);
  }
  ASSERT_GT(send(pair.front.Get(), "x", 1, 0), 0);
  EXPECT_EQ(ReceiveMessage(pair.worker.Get(), message), Received::kBroken);
}

TEST(WorkerChannel, AFileThatCannotBeSealedIsBroken) {
  const ChannelPair pair = MakeChannel();
  ChannelMessage message;
  SendWithPipes(pair.front.Get(), HeaderOf(kInMemoryFile, 0), 1);
  EXPECT_EQ(ReceiveMessage(pair.worker.Get(), message), Received::kBroken);
}

TEST(WorkerChannel, NoDescriptorIsLeftOfWhatIsNoMessage) {
  const ChannelPair pair = MakeChannel();
  const std::ptrdiff_t before = OpenDescriptors();
  ChannelMessage message;
  SendWithPipes(pair.front.Get(), HeaderOf(kInMemoryFile, 0), 2);
  EXPECT_EQ(ReceiveMessage(pair.worker.Get(), message), Received::kBroken);
  EXPECT_EQ(OpenDescriptors(), before);
  SendWithPipes(pair.front.Get(), "", 1);
  EXPECT_EQ(ReceiveMessage(pair.worker.Get(), message), Received::kClosed);
  EXPECT_EQ(OpenDescriptors(), before);
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
