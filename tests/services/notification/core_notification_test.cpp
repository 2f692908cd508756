// The module as the server uses it: loaded from its file, called through its table.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "host/core/strict_json.h"
#include "host/notification/notification_store.h"
#include "host/webapi/api_registry.h"
#include "host/webapi/module_description.h"
#include "host/webapi/module_loader.h"
#include "platform/paths.h"

namespace kalo {
namespace {

namespace fs = std::filesystem;

constexpr const char* kApi = "KALO.Core.Notification";
constexpr int kBadParameter = 403;
constexpr int kGeneralFailure = 117;

class CoreNotification : public testing::Test {
 protected:
  CoreNotification() {
    registry_.Add(webapi::LoadModule(KALO_MODULE), KALO_MODULE);
    fs::remove_all(KALO::paths::kNotifications);
  }
  CoreNotification(const CoreNotification&) = delete;
  CoreNotification& operator=(const CoreNotification&) = delete;
  ~CoreNotification() override { fs::remove_all(KALO::paths::kNotifications); }

  [[nodiscard]] KALO::APIResponse Call(const char* method,
                                       const Json::Value& parameters = Json::objectValue) const {
    KALO::APIRequest request(parameters);
    KALO::APIResponse response;
    registry_.Find(kApi, 1, method)(&request, &response);
    return response;
  }
  [[nodiscard]] KALO::APIResponse Dismiss(const Json::Value& id) const {
    Json::Value parameters(Json::objectValue);
    parameters["id"] = id;
    return Call("dismiss", parameters);
  }
  void Raise(const std::string& topic) const {
    store_.Raise({0, 0, "source", topic, "@administrators", 2, "words"});
  }
  // A folder at the store's place: it can be neither read nor replaced.
  static void BreakStore() {
    fs::create_directories(fs::path(KALO::paths::kNotifications) / "in the way");
  }

  webapi::ApiRegistry registry_;
  NotificationStore store_;
};

TEST_F(CoreNotification, ListsTheNewestFirstWithAllThatIsKnown) {
  Raise("old");
  Raise("new");
  const KALO::APIResponse response = Call("list");
  ASSERT_TRUE(response.IsSuccess()) << response.ErrorCode();
  EXPECT_EQ(response.Data().getMemberNames(), std::vector<std::string>{"notifications"});
  const Json::Value& list = response.Data()["notifications"];
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0]["topic"], "new");
  EXPECT_EQ(list[1]["topic"], "old");
  EXPECT_EQ(list[0].getMemberNames(),
            (std::vector<std::string>{"count", "id", "source", "text", "time", "to", "topic"}));
  EXPECT_EQ(list[0]["count"], 2);
  EXPECT_EQ(list[0]["source"], "source");
  EXPECT_EQ(list[0]["to"], "@administrators");
  EXPECT_EQ(list[0]["text"], "words");
  EXPECT_GT(list[0]["id"].asInt(), list[1]["id"].asInt());
  EXPECT_GT(list[0]["time"].asInt64(), 1500000000);
}

TEST_F(CoreNotification, AnEmptyListIsAnArray) {
  const KALO::APIResponse response = Call("list");
  ASSERT_TRUE(response.IsSuccess());
  EXPECT_EQ(response.Data()["notifications"], Json::Value(Json::arrayValue));
}

TEST_F(CoreNotification, DismissesByIdAndAnswersNull) {
  Raise("a");
  Raise("b");
  const int id = store_.List()[1].id;
  const KALO::APIResponse response = Dismiss(id);
  EXPECT_TRUE(response.IsSuccess());
  EXPECT_TRUE(response.Data().isNull());
  ASSERT_EQ(store_.List().size(), 1U);
  EXPECT_EQ(store_.List()[0].topic, "b");
  EXPECT_TRUE(Dismiss(id).IsSuccess()) << "one that is gone is what was asked for";
  EXPECT_EQ(store_.List().size(), 1U);
}

TEST_F(CoreNotification, RefusesWhatIsNoId) {
  Raise("a");
  EXPECT_EQ(Call("dismiss").ErrorCode(), kBadParameter);
  for (const Json::Value& id :
       {Json::Value(), Json::Value(0), Json::Value(-1), Json::Value("1"), Json::Value(true),
        Json::Value(1.5), Json::Value(Json::Int64{1} << 40), Json::Value(Json::arrayValue)}) {
    EXPECT_EQ(Dismiss(id).ErrorCode(), kBadParameter) << WriteJson(id);
  }
  EXPECT_EQ(store_.List().size(), 1U);
}

TEST_F(CoreNotification, AStoreThatFailsIsAGeneralFailure) {
  Raise("a");
  const int id = store_.List()[0].id;
  const fs::path lock = KALO::paths::kNotificationLock;
  fs::remove(lock);
  fs::create_symlink("/tmp/elsewhere", lock);  // a planted lock file is never used
  EXPECT_EQ(Call("list").ErrorCode(), kGeneralFailure);
  EXPECT_EQ(Dismiss(id).ErrorCode(), kGeneralFailure);
  fs::remove(lock);
  EXPECT_TRUE(Dismiss(id).IsSuccess());
}

TEST_F(CoreNotification, AStoreThatCannotBeReadCountsAsEmpty) {
  BreakStore();
  const KALO::APIResponse response = Call("list");
  ASSERT_TRUE(response.IsSuccess());
  EXPECT_TRUE(response.Data()["notifications"].empty());
  EXPECT_THROW(Raise("a"), std::runtime_error);
}

TEST_F(CoreNotification, IsDescribedRowByRowForAdministratorsAlone) {
  std::ifstream file(KALO_DESCRIPTION);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const webapi::ModuleDescription module = webapi::ParseModuleDescription(text, KALO_DESCRIPTION);
  EXPECT_EQ(module.library.filename(), fs::path(KALO_MODULE).filename());
  ASSERT_EQ(module.rows.size(), webapi::LoadModule(KALO_MODULE).size());
  for (const webapi::RowDescription& row : module.rows) {
    EXPECT_NE(registry_.Find(row.api, row.version, row.method), nullptr) << row.method;
    EXPECT_EQ(row.allow, std::vector{webapi::AllowedCaller::kAdministrators}) << row.method;
    EXPECT_FALSE(row.files) << row.method;
  }
}

}  // namespace
}  // namespace kalo
