#include "host/notification/notification_store.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "host/core/spawn.h"
#include "platform/paths.h"
#include "platform/update/update_util.h"
#include "tests/support/no_descriptors.h"

namespace kalo {
namespace {

namespace fs = std::filesystem;

class Notifications : public testing::Test {
 protected:
  Notifications() { fs::remove(KALO::paths::kNotifications); }

  void Raise(const std::string& topic, const std::string& text = "words") const {
    store_.Raise({0, 0, "source", topic, "@administrators", 1, text});
  }
  // @return topics, the newest first.
  [[nodiscard]] std::string Topics() const {
    std::string topics;
    for (const Notification& one : store_.List()) topics += one.topic + " ";
    return topics;
  }
  [[nodiscard]] static int Tool(const std::vector<std::string>& words) {
    std::vector<std::string> argv = {KALO_APP_NOTIFY};
    argv.insert(argv.end(), words.begin(), words.end());
    return WaitForExit(Spawn(argv));
  }

  NotificationStore store_;
};

TEST_F(Notifications, AreListedNewestFirstWithRisingIds) {
  Raise("a");
  Raise("b");
  const std::vector<Notification> list = store_.List();
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(Topics(), "b a ");
  EXPECT_GT(list[0].id, list[1].id);
  EXPECT_GT(list[0].time, 1500000000);
  EXPECT_EQ(list[1].source, "source");
  EXPECT_EQ(list[1].recipient, "@administrators");
  EXPECT_EQ(list[1].text, "words");
  EXPECT_EQ(fs::status(KALO::paths::kNotifications).permissions(), static_cast<fs::perms>(0600));
}

// Whoever took it for empty would write the next one over all the others.
TEST_F(Notifications, AFileThatCannotBeReadForAMomentIsNotTakenForNone) {
  Raise("a");
  {
    const test::NoDescriptors but_for_the_lock(1);
    EXPECT_THROW(static_cast<void>(store_.List()), std::runtime_error);
    EXPECT_THROW(Raise("b"), std::runtime_error);
  }
  EXPECT_EQ(Topics(), "a ");
}

TEST_F(Notifications, RaisedAgainReplaceTheEarlierOne) {
  Raise("a", "old");
  const int id = store_.List()[0].id;
  Raise("b");
  Raise("a", "new");
  EXPECT_EQ(Topics(), "a b ");
  EXPECT_EQ(store_.List()[0].text, "new");
  EXPECT_GT(store_.List()[0].id, id);
}

TEST_F(Notifications, AreClearedByWhatTheyAreAboutAndDismissedById) {
  Raise("a");
  Raise("b");
  store_.Clear("source", "a", "@users");
  EXPECT_EQ(Topics(), "b a ");
  store_.Clear("source", "a", "@administrators");
  EXPECT_EQ(Topics(), "b ");
  EXPECT_FALSE(store_.Dismiss(9999));
  EXPECT_TRUE(store_.Dismiss(store_.List()[0].id));
  EXPECT_EQ(Topics(), "");
  Raise("c");
  EXPECT_EQ(store_.List()[0].id, 3) << "an id is never used again";
}

TEST_F(Notifications, TheOldestGoWhenThereAreTooMany) {
  for (int i = 0; i < 105; ++i) Raise(std::to_string(i));
  const std::vector<Notification> list = store_.List();
  EXPECT_EQ(list.size(), 100U);
  EXPECT_EQ(list.back().topic, "5");
}

TEST_F(Notifications, ADamagedStoreIsReplaced) {
  for (const char* text : {"", "{", "[]", R"({"last_id":1})", R"({"notifications":[1]})"}) {
    std::ofstream(KALO::paths::kNotifications) << text;
    EXPECT_TRUE(store_.List().empty()) << text;
    Raise("a");
    EXPECT_EQ(Topics(), "a ") << text;
    fs::remove(KALO::paths::kNotifications);
  }
}

TEST_F(Notifications, TheToolRaisesAndClears) {
  const std::vector<std::string> about = {"-c", "KALO.WDX.PQMAdminCenter.Instance", "-f",
                                          "KALO.WDX.PQMAdminCenter.Administration.Main"};
  std::vector<std::string> raise = about;
  raise.insert(raise.end(), {"-u", "1", "@administrators"});
  EXPECT_EQ(Tool(raise), 0);
  ASSERT_EQ(store_.List().size(), 1U);
  EXPECT_EQ(store_.List()[0].source, about[1]);
  EXPECT_EQ(store_.List()[0].count, 1);
  EXPECT_NE(store_.List()[0].text.find("newer firmware"), std::string::npos);
  std::vector<std::string> clear = about;
  clear.insert(clear.end(), {"-r", "@administrators"});
  EXPECT_EQ(Tool(clear), 0);
  EXPECT_TRUE(store_.List().empty());
  EXPECT_EQ(Tool(clear), 0) << "nothing to clear is no failure";
}

TEST_F(Notifications, TheToolSaysWhatItDoesNotUnderstand) {
  EXPECT_EQ(Tool({}), 2);
  EXPECT_EQ(Tool({"-c", "a", "-f", "b", "@administrators"}), 2);
  EXPECT_EQ(Tool({"-c", "a", "-f", "b", "-u", "1", "-r", "@administrators"}), 2);
  EXPECT_EQ(Tool({"-c", "a", "-f", "b", "-u", "x", "@administrators"}), 2);
  EXPECT_TRUE(store_.List().empty());
}

TEST_F(Notifications, ADownloadsEndIsTold) {
  using KALO::MESH::SDK::Upgrade::UpdateUtil;
  UpdateUtil::SendNotification(true, false, "VXM 1.4.0-76010");
  EXPECT_NE(store_.List()[0].text.find("VXM 1.4.0-76010 was downloaded"), std::string::npos);
  UpdateUtil::SendNotification(false, true, "");
  ASSERT_EQ(store_.List().size(), 1U) << "only the last download counts";
  EXPECT_NE(store_.List()[0].text.find("could not be downloaded by itself"), std::string::npos);
}

}  // namespace
}  // namespace kalo
