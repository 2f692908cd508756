#include "services/webapid/user_store.h"

#include <gtest/gtest.h>

#include <fstream>

#include "host/core/object_reader.h"

namespace kalo::webapid {
namespace {

constexpr const char* kPath = "/tmp/users.json";

void Write(const std::string& text) {
  std::ofstream(kPath) << text;
}

TEST(UserStore, FindsUsersAndSeesChanges) {
  const UserStore store(kPath);
  Write(R"({"users":[{"name":"a","hash":"$y$x","groups":["g"]}]})");
  ASSERT_TRUE(store.Find("a"));
  EXPECT_EQ(store.Find("a")->hash, "$y$x");
  EXPECT_EQ(store.Find("a")->groups, std::vector<std::string>{"g"});
  EXPECT_FALSE(store.Find("b"));
  Write(R"({"users":[]})");
  EXPECT_FALSE(store.Find("a"));
}

TEST(UserStore, ABrokenFileHasNoUsers) {
  for (const char* text :
       {"", "[]", R"({"users":{}})", R"({"users":[1]})", R"({"users":[{"name":"a"}]})",
        R"({"users":[{"name":"a","hash":"plain","groups":[]}]})",
        R"({"users":[{"name":"a","hash":"$y$x","groups":[1]}]})",
        R"({"users":[{"name":"a","hash":"$y$x","groups":[]},)"
        R"({"name":"a","hash":"$y$x","groups":[]}]})"}) {
    Write(text);
    EXPECT_FALSE(UserStore(kPath).Find("a")) << text;
    EXPECT_THROW((void)ReadUsers(kPath), FormatError) << text;
  }
}

}  // namespace
}  // namespace kalo::webapid
