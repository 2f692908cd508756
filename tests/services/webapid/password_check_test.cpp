#include "services/webapid/password_check.h"

#include <gtest/gtest.h>

namespace kalo::webapid {
namespace {

// "secret" at the lowest cost.
constexpr const char* kHash =
    "$y$j75$abcdefghijklmnopqrstu/$aMXZ8aLyZZ.34V5w4RQ/w3gcYe3pPPVS6DIwzkzS9h9";

TEST(PasswordCheck, OnlyTheRightPasswordOfTheRightUserPasses) {
  const UserRecords users = {{"a", {kHash, {}, ""}}};
  EXPECT_TRUE(IsPasswordRight(users, "a", "secret"));
  EXPECT_FALSE(IsPasswordRight(users, "a", "Secret"));
  EXPECT_FALSE(IsPasswordRight(users, "a", ""));
  EXPECT_FALSE(IsPasswordRight(users, "b", "secret"));
  EXPECT_FALSE(IsPasswordRight({}, "", ""));
}

TEST(PasswordCheck, AHashThatCannotBeUsedNeverMatches) {
  const UserRecords users = {{"a", {"$y$", {}, ""}}, {"b", {"*0", {}, ""}}};
  for (const char* password : {"", "*0", "*1", "$y$"}) {
    EXPECT_FALSE(IsPasswordRight(users, "a", password));
    EXPECT_FALSE(IsPasswordRight(users, "b", password));
  }
}

}  // namespace
}  // namespace kalo::webapid
