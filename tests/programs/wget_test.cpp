#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "host/core/spawn.h"
#include "programs/wget/fetch_to_file.h"
#include "tests/host/update/temporary_folder.h"
#include "tests/support/script_server.h"

namespace kalo::fetch {
namespace {

namespace fs = std::filesystem;
using test::Contents;
using test::ScriptClient;
using test::ScriptServer;

class Wget : public testing::Test {
 protected:
  // @return the program's exit status.
  [[nodiscard]] static int Run(const std::vector<std::string>& words) {
    std::vector<std::string> argv = {KALO_WGET};
    argv.insert(argv.end(), words.begin(), words.end());
    return WaitForExit(Spawn(argv));
  }
  [[nodiscard]] int Get(const std::string& url) const {
    return Run({"--timeout=5", "--tries=1", "-O", path_, url});
  }
  [[nodiscard]] int GetFrom(const ScriptServer::Script& script) const {
    const ScriptServer server(script);
    return Get(server.Url() + "/x");
  }

  test::TemporaryFolder folder_;
  std::string path_ = folder_.Path("document");
};

TEST_F(Wget, StoresTheWholeAnswerWhateverItIs) {
  const std::string garbage("\x01<html>\0{", 9);
  EXPECT_EQ(
      GetFrom([&](const ScriptClient& c) { c.Send(ScriptServer::Answer("200 OK", garbage)); }),
      kOk);
  EXPECT_EQ(Contents(path_), garbage);
  EXPECT_EQ(fs::status(path_).permissions(), static_cast<fs::perms>(0600));
}

TEST_F(Wget, LeavesAnEmptyFileAfterAnythingElse) {
  (void)folder_.Write("document", "old");
  EXPECT_EQ(GetFrom([](const ScriptClient& c) { c.Send(ScriptServer::Answer("404 No", "page")); }),
            kRefused);
  EXPECT_TRUE(fs::exists(path_));
  EXPECT_EQ(Contents(path_), "");
  EXPECT_EQ(GetFrom([](const ScriptClient& c) {
              c.Send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf");
            }),
            kNetwork);
  EXPECT_EQ(Contents(path_), "");
  EXPECT_EQ(GetFrom([](const ScriptClient& c) {
              c.Send("HTTP/1.1 200 OK\r\nContent-Length: 1048577\r\n\r\nx");
              c.WaitForEnd();
            }),
            kNetwork);
  EXPECT_EQ(Contents(path_), "");
}

TEST_F(Wget, AMebibyteIsStillTaken) {
  const std::string document(std::size_t{1} << 20, 'x');
  EXPECT_EQ(
      GetFrom([&](const ScriptClient& c) { c.Send(ScriptServer::Answer("200 OK", document)); }),
      kOk);
  EXPECT_EQ(Contents(path_).size(), document.size());
}

TEST_F(Wget, ReplacesWhatSomebodyPlanted) {
  const std::string victim = folder_.Write("victim", "precious");
  fs::create_symlink(victim, path_);
  const auto answer = [](const ScriptClient& c) { c.Send(ScriptServer::Answer("200 OK", "new")); };
  EXPECT_EQ(GetFrom(answer), kOk);
  EXPECT_EQ(Contents(victim), "precious");
  EXPECT_FALSE(fs::is_symlink(path_));
  EXPECT_EQ(Contents(path_), "new");
  fs::remove(path_);
  ASSERT_EQ(mkfifo(path_.c_str(), 0666), 0);
  EXPECT_EQ(GetFrom(answer), kOk);
  EXPECT_TRUE(fs::is_regular_file(path_));
}

TEST_F(Wget, SaysWhenTheFileCannotBeMade) {
  fs::create_directory(path_);
  EXPECT_EQ(Get("http://127.0.0.1:1/"), kCannotWrite);
  path_ = folder_.Path("missing/document");
  EXPECT_EQ(Get("http://127.0.0.1:1/"), kCannotWrite);
}

TEST_F(Wget, TakesItsFiveArgumentsAndNothingElse) {
  EXPECT_EQ(Run({}), kUsage);
  EXPECT_EQ(Run({"--timeout=5", "--tries=1", "-O", path_}), kUsage);
  EXPECT_EQ(Run({"--timeout=5", "--tries=2", "-O", path_, "http://127.0.0.1:1/"}), kUsage);
  EXPECT_EQ(Run({"--tries=1", "--timeout=5", "-O", path_, "http://127.0.0.1:1/"}), kUsage);
  for (const char* timeout : {"--timeout=0", "--timeout=601", "--timeout=5s", "--timeout="}) {
    EXPECT_EQ(Run({timeout, "--tries=1", "-O", path_, "http://127.0.0.1:1/"}), kUsage) << timeout;
  }
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_EQ(Get("http://127.0.0.1:1/"), kNetwork);
}

}  // namespace
}  // namespace kalo::fetch
