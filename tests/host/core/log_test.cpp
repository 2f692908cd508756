#include "host/core/log.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>

#include "host/core/unique_fd.h"

namespace kalo::test {
namespace {

TEST(Log, WritesOneLineWithItsPriorityAndKeepsErrno) {
  const UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, "/dev/log", sizeof address.sun_path - 1);
  ASSERT_EQ(bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  closelog();
  errno = ENOSPC;
  Log(LOG_WARNING, "%s: %d", "number", 7);
  EXPECT_EQ(errno, ENOSPC);
  pollfd waiting = {.fd = fd.Get(), .events = POLLIN, .revents = 0};
  ASSERT_EQ(poll(&waiting, 1, 10000), 1);
  std::array<char, 512> message = {};
  ASSERT_GT(recv(fd.Get(), message.data(), message.size() - 1, 0), 0);
  const std::string text = message.data();
  EXPECT_TRUE(text.starts_with("<12>")) << text;
  EXPECT_TRUE(text.ends_with(": number: 7")) << text;
}

}  // namespace
}  // namespace kalo::test
