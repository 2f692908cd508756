#include "services/webapid/user_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>
#include <filesystem>
#include <fstream>

#include "host/core/object_reader.h"
#include "tests/support/wait.h"

namespace kalo::webapid {
namespace {

constexpr const char* kPath = "/tmp/users.json";

void Write(const std::string& text) {
  std::ofstream(kPath) << text;
}

TEST(UserStore, FindsUsersAndSeesChanges) {
  UserStore store(kPath);
  Write(R"({"users":[{"name":"a","hash":"$y$x","groups":["g"]}]})");
  ASSERT_TRUE(store.Find("a"));
  EXPECT_EQ(store.Find("a")->hash, "$y$x");
  EXPECT_EQ(store.Find("a")->groups, std::vector<std::string>{"g"});
  EXPECT_FALSE(store.Find("b"));
  Write(R"({"users":[]})");
  EXPECT_FALSE(store.Find("a"));
}

// The file that the server has known for a while is not read again, whoever replaces it.
TEST(UserStore, SeesAChangeOfAFileThatHasSettled) {
  Write(R"({"users":[{"name":"a","hash":"$y$x","groups":[]}]})");
  struct stat written = {};
  ASSERT_EQ(stat(kPath, &written), 0);
  ASSERT_TRUE(test::WaitFor([&] { return std::time(nullptr) > written.st_ctim.tv_sec + 3; }));
  UserStore store(kPath);
  ASSERT_TRUE(store.Find("a"));
  EXPECT_TRUE(store.Find("a"));
  Write(R"({"users":[{"name":"b","hash":"$y$x","groups":[]}]})");  // as long as before
  EXPECT_FALSE(store.Find("a"));
  EXPECT_TRUE(store.Find("b"));
  std::filesystem::remove(kPath);
  EXPECT_FALSE(store.Find("b"));
}

TEST(UserStore, AnotherPasswordIsAnotherCredential) {
  UserStore store(kPath);
  Write(R"({"users":[{"name":"a","hash":"$y$x","groups":[]}]})");
  const std::string before = store.Find("a")->credential;
  Write(R"({"users":[{"name":"a","hash":"$y$z","groups":[]}]})");
  EXPECT_NE(store.Find("a")->credential, before);
}

TEST(UserStore, ABrokenFileHasNoUsers) {
  for (const char* text :
       {"", "[]", R"({"users":{}})", R"({"users":[1]})", R"({"users":[{"name":"a"}]})",
        R"({"users":[{"name":"a","hash":"plain","groups":[]}]})",
        R"({"users":[{"name":"a","hash":"$y$x","groups":[1]}]})",
        R"({"users":[{"name":"a","hash":"$y$x","groups":[]},
                     {"name":"a","hash":"$y$x","groups":[]}]})"}) {
    Write(text);
    EXPECT_FALSE(UserStore(kPath).Find("a")) << text;
    EXPECT_THROW((void)ReadUsers(kPath), FormatError) << text;
  }
}

}  // namespace
}  // namespace kalo::webapid
