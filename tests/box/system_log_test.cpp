#include "box/node_init/system_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace kalo::box {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

std::string Read(const fs::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(SystemLog, KeepsPriorityTagAndText) {
  SystemLog log("/dev/log", "/var/log/one", 100000);
  openlog("webapid-worker", 0, LOG_USER);
  syslog(LOG_ERR, "webapi_upgrade_handler:%d text", 96);
  closelog();
  log.Take();
  EXPECT_THAT(Read("/var/log/one"), StartsWith("<11>"));
  EXPECT_THAT(Read("/var/log/one"), HasSubstr("webapid-worker: webapi_upgrade_handler:96 text\n"));
}

TEST(SystemLog, AMessageStaysOneLine) {
  SystemLog log("/dev/log", "/var/log/two", 100000);
  syslog(LOG_ERR, "%s", "first\nsecond\x1b[2J");
  closelog();
  log.Take();
  EXPECT_THAT(Read("/var/log/two"), HasSubstr("first second [2J\n"));
}

TEST(SystemLog, OwnLinesLookLikeTheOthers) {
  SystemLog log("/dev/log", "/var/log/three", 100000);
  log.Write(LOG_NOTICE, "started webapid");
  EXPECT_THAT(Read("/var/log/three"), StartsWith("<29>"));
  EXPECT_THAT(Read("/var/log/three"), HasSubstr(" node-init: started webapid\n"));
}

TEST(SystemLog, AFullFileIsMovedAway) {
  SystemLog log("/dev/log", "/var/log/four", 1000);
  for (int i = 0; i < 100; ++i) log.Write(LOG_NOTICE, "line " + std::to_string(i));
  EXPECT_LE(fs::file_size("/var/log/four"), 1000U);
  EXPECT_LE(fs::file_size("/var/log/four.1"), 1000U);
  EXPECT_THAT(Read("/var/log/four"), HasSubstr("line 99\n"));
}

TEST(SystemLog, GoesOnInTheSameFileAfterABoot) {
  { SystemLog("/dev/log", "/var/log/five", 1000).Write(LOG_NOTICE, "before"); }
  { SystemLog("/dev/log", "/var/log/five", 1000).Write(LOG_NOTICE, "after"); }
  EXPECT_THAT(Read("/var/log/five"), HasSubstr("before"));
  EXPECT_THAT(Read("/var/log/five"), HasSubstr("after"));
}

}  // namespace
}  // namespace kalo::box
