#include "services/webapid/session_store.h"

#include <gtest/gtest.h>

#include <fstream>

namespace kalo::webapid {
namespace {

namespace fs = std::filesystem;

class SessionStoreTest : public testing::Test {
 protected:
  void SetUp() override { fs::remove_all(kFolder); }

  [[nodiscard]] SessionStore Open() {
    return SessionStore(
        {kFolder, std::chrono::seconds(100), std::chrono::seconds(1000), [this] { return now_; }});
  }
  [[nodiscard]] static SessionState StateOf(SessionStore& store, const SessionSecrets& secrets) {
    return store.Check(secrets.cookie, secrets.token).state;
  }

  static constexpr const char* kFolder = "/var/lib/kalo/sessions";
  std::int64_t now_ = 1000000;
};

TEST_F(SessionStoreTest, FindsTheUserByBothSecrets) {
  SessionStore store = Open();
  const SessionSecrets secrets = store.Create("u", "c");
  const SessionCheck check = store.Check(secrets.cookie, secrets.token);
  EXPECT_EQ(check.state, SessionState::kValid);
  EXPECT_EQ(check.user, "u");
  EXPECT_EQ(check.credential, "c");
  EXPECT_EQ(store.Check("", secrets.token).state, SessionState::kNone);
  EXPECT_EQ(store.Check("x", secrets.token).state, SessionState::kEnded);
  EXPECT_EQ(store.Check(secrets.cookie, "").state, SessionState::kTokenWrong);
  EXPECT_EQ(store.Check(secrets.cookie, secrets.cookie).state, SessionState::kTokenWrong);
}

TEST_F(SessionStoreTest, EndsWhenIdleTooLong) {
  SessionStore store = Open();
  const SessionSecrets secrets = store.Create("u", "c");
  for (int i = 0; i < 3; ++i) {
    now_ += 99;
    EXPECT_EQ(StateOf(store, secrets), SessionState::kValid);
  }
  now_ += 100;
  EXPECT_EQ(StateOf(store, secrets), SessionState::kEnded);
  EXPECT_TRUE(fs::is_empty(kFolder));
}

TEST_F(SessionStoreTest, AWrongTokenIsNoActivity) {
  SessionStore store = Open();
  const SessionSecrets secrets = store.Create("u", "c");
  now_ += 99;
  (void)store.Check(secrets.cookie, "wrong");
  now_ += 1;
  EXPECT_EQ(StateOf(store, secrets), SessionState::kEnded);
}

TEST_F(SessionStoreTest, EndsWhenTooOldHoweverActive) {
  SessionStore store = Open();
  const SessionSecrets secrets = store.Create("u", "c");
  for (int i = 0; i < 19; ++i) {
    now_ += 50;
    EXPECT_EQ(StateOf(store, secrets), SessionState::kValid);
  }
  now_ += 50;
  EXPECT_EQ(StateOf(store, secrets), SessionState::kEnded);
}

TEST_F(SessionStoreTest, SurvivesARestartWithItsActivity) {
  SessionSecrets secrets;
  {
    SessionStore store = Open();
    secrets = store.Create("u", "c");
    now_ += 90;
    EXPECT_EQ(StateOf(store, secrets), SessionState::kValid);
  }
  now_ += 90;
  SessionStore again = Open();
  EXPECT_EQ(StateOf(again, secrets), SessionState::kValid);
  again.End(secrets.cookie);
  SessionStore third = Open();
  EXPECT_EQ(StateOf(third, secrets), SessionState::kEnded);
}

TEST_F(SessionStoreTest, AClockThatWasSetBackEndsIt) {
  SessionStore store = Open();
  const SessionSecrets secrets = store.Create("u", "c");
  now_ -= 5000;
  EXPECT_EQ(StateOf(store, secrets), SessionState::kEnded);
}

TEST_F(SessionStoreTest, BrokenFilesAreRemoved) {
  fs::create_directories(kFolder);
  for (const char* text : {"", "{}", "[]", R"({"user":1})", R"({"created":"x","used":1e99})"}) {
    std::ofstream(fs::path(kFolder) / std::string(64, 'a')) << text;
    const SessionStore store = Open();
    EXPECT_TRUE(fs::is_empty(kFolder)) << text;
  }
}

TEST_F(SessionStoreTest, TheOldestMakeRoom) {
  SessionStore store = Open();
  const SessionSecrets first = store.Create("u", "c");
  ++now_;
  const SessionSecrets second = store.Create("u", "c");
  for (int i = 0; i < 255; ++i) (void)store.Create("u", "c");
  EXPECT_EQ(StateOf(store, first), SessionState::kEnded);
  EXPECT_EQ(StateOf(store, second), SessionState::kValid);
}

}  // namespace
}  // namespace kalo::webapid
