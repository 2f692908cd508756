#include "platform/update/system_update.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "services/feedd/feed_server.h"
#include "tests/host/update/feed/example_list.h"
#include "tests/host/update/feed/test_feed.h"
#include "tests/support/log_socket.h"

namespace KALO::MESH::SDK::Upgrade {
namespace {

using kalo::feed::Example;
using kalo::feed::ExampleList;
using kalo::feed::ReleaseList;

class RegularCheck : public ::testing::Test {
 protected:
  RegularCheck() { kalo::test::TestFeed::Configure(server_.Url() + "/"); }

  // @return "kind version", or "-" when nothing is found.
  [[nodiscard]] static std::string Check(const std::string& build,
                                         const std::string& unique = "kalo_m1") {
    tag_hbxinfo info{};
    std::strncpy(info.build, build.c_str(), sizeof(info.build) - 1);
    std::strncpy(info.unique, unique.c_str(), sizeof(info.unique) - 1);
    bool found = true;
    tag_UPDATE_INFO update{"stale", "stale"};
    SystemUpdate(false).CheckNewUpdateByHBXInfo(found, update, info, true);
    if (!found) {
      EXPECT_EQ(update.version, "");
      return "-";
    }
    return update.type + " " + update.version;
  }
  [[nodiscard]] static ReleaseList List(int number = 7) {
    ReleaseList list =
        ExampleList({Example("VXM 1.3.1-9346 Update 2", 9346, 2), Example("VXM 1.3.1-9346", 9346)});
    list.number = number;
    return list;
  }

  kalo::test::LogSocket log_;
  kalo::test::TestFeed feed_;
  // The folder first: the server opens it.
  bool made_ = std::filesystem::create_directories(feed_.Root());
  kalo::feedd::FeedServer server_{{feed_.Root(), "127.0.0.1", 0, "", ""}};
};

TEST_F(RegularCheck, OffersWhatTheListHas) {
  feed_.PutList(List());
  EXPECT_EQ(Check("9300"), "hbx VXM 1.3.1-9346");
  EXPECT_EQ(Check("9346"), "smallupdate VXM 1.3.1-9346 Update 2");
  EXPECT_EQ(Check("9400"), "hbx VXM 1.3.1-9346") << "that it is older is for the caller to see";
  EXPECT_EQ(NanoJson::CheckNanoUpdate("kalo_m1", 9346), 2);
  EXPECT_EQ(NanoJson::CheckNanoUpdate("kalo_m1", 9347), 0);
}

TEST_F(RegularCheck, AModelWithoutAListIsOfferedNothing) {
  EXPECT_EQ(Check("9300"), "-");
  EXPECT_TRUE(log_.WaitFor("update list of kalo_m1: "));
  EXPECT_TRUE(log_.WaitFor("the server answers with status 404"));
  EXPECT_EQ(NanoJson::CheckNanoUpdate("kalo_m1", 9346), 0);
}

TEST_F(RegularCheck, WhatCannotBeAskedForIsOfferedNothing) {
  feed_.PutList(List());
  for (const char* build : {"", "x", "-1", "9300x", "99999999999"}) {
    EXPECT_EQ(Check(build), "-") << build;
  }
  for (const char* unique : {"", "../kalo_m1", ".x", "a b"}) {
    EXPECT_EQ(Check("9300", unique), "-") << unique;
  }
}

TEST_F(RegularCheck, ABadSignatureIsNoOffer) {
  feed_.PutList(List(), std::string(64, 's'));
  EXPECT_EQ(Check("9300"), "-");
  EXPECT_TRUE(log_.WaitFor("list.json: its signature is bad"));
  feed_.PutList(List(), kalo::patch::SigningKey::Generate().Sign(WriteReleaseList(List())));
  EXPECT_EQ(Check("9300"), "-") << "somebody else's key";
}

TEST_F(RegularCheck, AnExpiredListIsNoOffer) {
  ReleaseList list = List();
  list.expires = 1700000000;
  feed_.PutList(list);
  EXPECT_EQ(Check("9300"), "-");
  EXPECT_TRUE(log_.WaitFor("list.json: it has expired"));
}

TEST_F(RegularCheck, AnOlderListThanOneSeenBeforeIsNoOffer) {
  feed_.PutList(List(7));
  EXPECT_EQ(Check("9300"), "hbx VXM 1.3.1-9346");
  feed_.PutList(List(6));
  EXPECT_EQ(Check("9300"), "-");
  EXPECT_TRUE(log_.WaitFor("it is older (6) than one seen before (7)"));
  feed_.PutList(List(7));
  EXPECT_NE(Check("9300"), "-") << "the same one counts";
  feed_.PutList(List(8));
  EXPECT_NE(Check("9300"), "-");
}

// Whoever takes the number for none takes any old list.
TEST_F(RegularCheck, WithoutTheNumberThatWasSeenBeforeThereIsNoOffer) {
  feed_.PutList(List(7));
  const std::filesystem::path folder = KALO::paths::kFeedState;
  std::filesystem::create_directories(folder.parent_path());
  std::ofstream{folder};  // beneath a file nothing can be read
  EXPECT_EQ(Check("9300"), "-");
  EXPECT_TRUE(log_.WaitFor("kalo_m1: Not a directory"));
  std::filesystem::remove(folder);
  EXPECT_NE(Check("9300"), "-");
}

TEST_F(RegularCheck, AListThatDoesNotCountIsNotRemembered) {
  ReleaseList list = List(99);
  list.expires = 1700000000;
  feed_.PutList(list);
  EXPECT_EQ(Check("9300"), "-");
  feed_.PutList(List(7));
  EXPECT_NE(Check("9300"), "-");
}

TEST_F(RegularCheck, AnotherModelsListIsNoOffer) {
  ReleaseList list = List();
  list.unique = "kalo_m2";
  feed_.PutList(list);
  std::filesystem::copy(feed_.Root() + "/v1/kalo_m2", feed_.Root() + "/v1/kalo_m1");
  EXPECT_EQ(Check("9300"), "-");
  EXPECT_TRUE(log_.WaitFor("it is for model kalo_m2"));
}

class UpgradePath : public RegularCheck {
 protected:
  UpgradePath() {
    ReleaseList list = ExampleList(
        {Example("VXM 1.4.0-76000", 76000), Example("VXM 1.4.1-76010", 76010),
         Example("VXM 1.4.2-76020", 76020), Example("VXM 1.4.2-76020 Update 1", 76020, 1)});
    list.stones = {76010};
    feed_.PutList(list);
  }
  static std::vector<std::string> Path(const std::string& target, const std::string& current) {
    return Upgrade().GetUpgradePath(target, current, "kalo_m1");
  }
};

TEST_F(UpgradePath, LeadsOverTheStopsToTheTargetAsItWasNamed) {
  using testing::ElementsAre;
  EXPECT_THAT(Path("VXM 1.4.2-76020", "VXM 1.4.0-76000"),
              ElementsAre("VXM 1.4.1-76010", "VXM 1.4.2-76020"));
  EXPECT_THAT(Path("1.4.2-76020 Update 1", "VXM 1.4.1-76010"), ElementsAre("1.4.2-76020 Update 1"));
  EXPECT_THAT(Path("VXM 1.4.2-76020 Update 1", "VXM 1.4.2-76020"),
              ElementsAre("VXM 1.4.2-76020 Update 1"));
}

TEST_F(UpgradePath, IsEmptyForWhoIsThere) {
  EXPECT_TRUE(Path("VXM 1.4.2-76020", "VXM 1.4.2-76020").empty());
  EXPECT_TRUE(Path("VXM 1.4.2-76020", "VXM 1.4.2-76020 Update 1").empty());
  EXPECT_TRUE(Path("VXM 1.4.0-1", "VXM 1.4.0-2").empty()) << "nobody is asked for that";
}

TEST_F(UpgradePath, ThrowsWhereNoneIsKnown) {
  EXPECT_THROW(Path("VXM 1.4.2-76030", "VXM 1.4.0-76000"), std::runtime_error);
  EXPECT_THROW(Path("VXM 1.4.2-76020 Update 2", "VXM 1.4.2-76020"), std::runtime_error);
  EXPECT_THROW(Path("new", "VXM 1.4.2-76020"), std::runtime_error);
  EXPECT_THROW(Path("VXM 1.4.2-76020", "old"), std::runtime_error);
  EXPECT_THROW(Upgrade().GetUpgradePath("VXM 1.4.2-76020", "VXM 1.4.0-76000", "kalo_m2"),
               std::runtime_error);
}

}  // namespace
}  // namespace KALO::MESH::SDK::Upgrade
