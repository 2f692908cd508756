#include "box/control.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <thread>

namespace kalo::box {
namespace {

namespace fs = std::filesystem;

struct Pair {
  ControlChannel client;
  ControlChannel server;
};

Pair Connected(const fs::path& path) {
  const UniqueFd listening = ListenControl(path);
  auto client = ConnectControl(path);
  auto server = AcceptControl(listening.Get());
  return {std::move(*client), std::move(*server)};
}

Json::Value Object(const char* key, const char* value) {
  Json::Value object(Json::objectValue);
  object[key] = value;
  return object;
}

TEST(Control, CarriesAnObject) {
  Pair pair = Connected("/tmp/control");
  ASSERT_TRUE(pair.client.Send(Object("op", "reboot")));
  const auto message = pair.server.Receive();
  ASSERT_TRUE(message);
  EXPECT_EQ(message->body, Object("op", "reboot"));
  EXPECT_TRUE(message->fds.empty());
}

TEST(Control, CarriesDescriptorsThatWork) {
  Pair pair = Connected("/tmp/control");
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  const UniqueFd read_end(ends[0]);
  const UniqueFd write_end(ends[1]);
  const std::array fds = {write_end.Get()};
  ASSERT_TRUE(pair.client.Send(Object("op", "exec"), fds));
  const auto message = pair.server.Receive();
  ASSERT_TRUE(message);
  ASSERT_EQ(message->fds.size(), 1U);
  EXPECT_NE(message->fds[0].Get(), write_end.Get());
  ASSERT_EQ(write(message->fds[0].Get(), "x", 1), 1);
  char byte = 0;
  EXPECT_EQ(read(read_end.Get(), &byte, 1), 1);
  EXPECT_EQ(byte, 'x');
}

TEST(Control, WorksBelowAPathLongerThanAnAddressHolds) {
  const fs::path folder = fs::path("/tmp") / std::string(120, 'x') / std::string(120, 'y');
  fs::create_directories(folder);
  Pair pair = Connected(folder / "control");
  EXPECT_TRUE(pair.client.Send(Object("op", "down")));
  EXPECT_TRUE(pair.server.Receive());
}

TEST(Control, TakesThePlaceOfASocketThatAnEarlierRunLeft) {
  { const UniqueFd left = ListenControl("/tmp/control"); }
  EXPECT_TRUE(fs::exists("/tmp/control"));
  EXPECT_FALSE(ConnectControl("/tmp/control"));
  Pair pair = Connected("/tmp/control");
  EXPECT_TRUE(pair.client.Send(Object("op", "down")));
}

TEST(Control, RefusesWhatIsNoObject) {
  for (const char* text : {"", "[1]", "{\"a\":1} x", "\xff\xfe", "{\"a\":"}) {
    Pair pair = Connected("/tmp/control");
    ASSERT_GE(send(pair.client.Fd(), text, std::string(text).size(), 0), 0);
    EXPECT_FALSE(pair.server.Receive()) << text;
  }
}

TEST(Control, AskingNobodyIsAnErrorAndNotAWait) {
  EXPECT_TRUE(AskControl("/tmp/nobody", Object("op", "down")).isMember("error"));
}

TEST(Control, AskingOneWhoEndsWithoutAnAnswerIsAnError) {
  const UniqueFd listening = ListenControl("/tmp/control");
  std::thread server([&] { static_cast<void>(AcceptControl(listening.Get())->Receive()); });
  EXPECT_TRUE(AskControl("/tmp/control", Object("op", "down")).isMember("error"));
  server.join();
}

}  // namespace
}  // namespace kalo::box
