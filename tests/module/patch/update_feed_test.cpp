// The version-2 feed of one node, as the check asks it.

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "tests/module/patch/check_test.h"

namespace KALO::MESH::Webapi {
namespace {

using fake::ElementsAre;
using fake::IsEmpty;
using fake::MatchesRegex;

class UpdateFeed : public CheckTest {
 protected:
  UpdateFeed() { platform.AddNode(0, "M1", 76000); }

  UpgradeHandler::PatchInfo Check() {
    UpgradeHandler::PatchInfo info = handler.PatchCheckImpl(false);
    EXPECT_NE(access(fetched_file.c_str(), F_OK), 0) << "the fetched file stays";
    return info;
  }
  // @return the line that says why nothing was found.
  std::string Cause() {
    EXPECT_FALSE(Check().available);
    EXPECT_TRUE(Logged("7 No new update for node 0"));
    std::string cause;
    for (const std::string& line : CheckLogs()) {
      if (line.find("URL") == std::string::npos &&
          line.find("No new update") == std::string::npos) {
        cause += line;
      }
    }
    return cause;
  }
};

TEST_F(UpdateFeed, IsAskedForModelBuildBetaAndGroup) {
  FeedItem("VXM 1.4.0-76010", 76010);
  const auto info = Check();
  EXPECT_TRUE(info.available);
  EXPECT_EQ(info.version, "VXM 1.4.0-76010");
  EXPECT_EQ(info.build_num, 76010);
  EXPECT_EQ(info.type, "hbx");
  const std::string url =
      "https://update.kalo.example/autoupdate/v2/getList"
      "?unique=M1&build_num=76000&include_beta=true&group_id=4";
  ASSERT_EQ(Lines("execl").size(), 1U);
  EXPECT_THAT(Lines("execl")[0],
              MatchesRegex("execl /usr/kalo/bin/wget 187 --timeout=30 --tries=1 -O "
                           "/tmp/rss_v2_[0-9]+\\.json https://update.*"));
  EXPECT_TRUE(Lines("execl")[0].ends_with(".json " + url));
  EXPECT_THAT(CheckLogs(), ElementsAre("7 Using default RSS server URL: "
                                       "https://update.kalo.example/autoupdate/v2/getList",
                                       "7 Fetching RSS V2 from URL: " + url));
}

TEST_F(UpdateFeed, TheFilesNameHoldsTheTime) {
  const std::time_t before = std::time(nullptr);
  (void)Check();
  const std::string prefix = "/tmp/rss_v2_";
  ASSERT_TRUE(fetched_file.starts_with(prefix));
  const long seconds = std::stol(fetched_file.substr(prefix.size()));
  EXPECT_GE(seconds, before);
  EXPECT_LE(seconds, std::time(nullptr));
}

TEST_F(UpdateFeed, IsWhereTheConfigurationSays) {
  platform.files["/etc.defaults/kaloinfo.conf"]["rss_server_v2"] = "https://here/x";
  FeedItem("VXM 1.4.0-76010", 76010);
  EXPECT_TRUE(Check().available);
  EXPECT_TRUE(Logged("7 Using RSS server URL from kaloinfo.conf: https://here/x"));
  EXPECT_TRUE(Lines("execl")[0].ends_with(
      " https://here/x?unique=M1&build_num=76000&include_beta=true&group_id=4"));
  EXPECT_THAT(Lines("get /etc.defaults/kaloinfo.conf rss"),
              ElementsAre("get /etc.defaults/kaloinfo.conf rss_server_v2 256"));
}

TEST_F(UpdateFeed, OneCharacterIsAConfigurationToo) {
  platform.files["/etc.defaults/kaloinfo.conf"]["rss_server_v2"] = "h";
  (void)Check();
  EXPECT_TRUE(Logged("7 Using RSS server URL from kaloinfo.conf: h"));
}

TEST_F(UpdateFeed, AnUnreadableConfigurationMeansTheDefault) {
  platform.results["get /etc.defaults/kaloinfo.conf rss_server_v2"] = -1;
  EXPECT_FALSE(Check().available);
  EXPECT_TRUE(Lines("execl")[0].find("https://update.kalo.example/") != std::string::npos);
}

TEST_F(UpdateFeed, OnlyExactlyBetaIsBeta) {
  FeedItem("VXM 1.4.0-76010", 76010, R"("Beta")");
  EXPECT_TRUE(Check().is_beta);
  for (const char* phase : {R"("beta")", R"("BETA")", R"("Beta ")", R"("")", "null", "1", "true",
                            R"(["Beta"])", R"({"Beta":1})"}) {
    FeedItem("VXM 1.4.0-76010", 76010, phase);
    EXPECT_FALSE(Check().is_beta) << phase;
  }
}

TEST_F(UpdateFeed, IsNotComparedWithWhatTheNodeRuns) {
  FeedItem("VXM 1.3.0-75000", 76000);
  const auto info = Check();
  EXPECT_TRUE(info.available);
  EXPECT_EQ(info.build_num, 75000);
}

TEST_F(UpdateFeed, ATitleThatIsNoVersionHasTheNumbersZero) {
  FeedItem("whatever", 76000);
  const auto info = Check();
  EXPECT_TRUE(info.available);
  EXPECT_EQ(Key("patch_full"), "whatever");
  EXPECT_EQ(info.build_num, 0);
}

TEST_F(UpdateFeed, ATitleIsOneValueWhateverItHolds) {
  FeedItem(R"(VXM 1.4.0-76010\" x=\n\"y)", 76010);
  EXPECT_TRUE(Check().available);
  EXPECT_EQ(Key("patch_promo"), "VXM 1.4.0-76010\" x=\n\"y");
}

TEST_F(UpdateFeed, AnEmptyTitleIsNoOffer) {
  FeedItem("", 76000);
  EXPECT_EQ(Cause(), "");
}

TEST_F(UpdateFeed, AFetcherThatCouldNotBeRunIsNoOffer) {
  fetch_result = -1;
  EXPECT_EQ(Cause(),
            "3 Failed to get RSS V2 with url: https://update.kalo.example/autoupdate/v2/getList"
            "?unique=M1&build_num=76000&include_beta=true&group_id=4");
}

TEST_F(UpdateFeed, AFetcherThatDiedLeavesNoFile) {
  platform.on_program = [this](const std::vector<std::string>& words) {
    if (words.front() != "/usr/kalo/bin/wget") return 0;
    fetched_file = words.at(4);
    std::ofstream(fetched_file) << "half a doc";
    return -1;
  };
  (void)Check();
}

TEST_F(UpdateFeed, AFetcherThatFailedLeadsOnToItsFile) {
  fetch_result = 8;
  EXPECT_EQ(Cause(), "3 Failed to parse RSS V2 JSON");
  FeedItem("VXM 1.4.0-76010", 76010);
  EXPECT_TRUE(Check().available);
}

TEST_F(UpdateFeed, AMissingFileIsNoOffer) {
  platform.on_program = [this](const std::vector<std::string>& words) {
    fetched_file = words.at(4);
    return 0;
  };
  const std::string cause = Cause();
  EXPECT_EQ(cause, "3 Failed to open RSS V2 file: " + fetched_file);
}

TEST_F(UpdateFeed, AFolderInTheFilesPlaceIsNoOffer) {
  platform.on_program = [this](const std::vector<std::string>& words) {
    fetched_file = words.at(4);
    mkdir(fetched_file.c_str(), 0700);
    return 0;
  };
  EXPECT_FALSE(handler.PatchCheckImpl(false).available);
  EXPECT_TRUE(Logged("3 Failed to parse RSS V2 JSON"));
  rmdir(fetched_file.c_str());  // the next test may have the same second in its name
}

TEST_F(UpdateFeed, TheGroupIsTheLastDigitOfTheStoredNumber) {
  platform.files["/etc/kaloinfo.conf"]["rolling_group_id"] = "0";
  (void)Check();
  EXPECT_TRUE(Lines("execl")[0].ends_with("&group_id=0"));
  EXPECT_THAT(Lines("info_set"), IsEmpty());
  EXPECT_THAT(Lines("get /etc/kaloinfo.conf"),
              ElementsAre("get /etc/kaloinfo.conf rolling_group_id 16"));
}

TEST_F(UpdateFeed, TheGroupIsDrawnOnceAndStored) {
  for (const int failure : {0, -1}) {
    platform.journal.Clear();
    platform.files["/etc/kaloinfo.conf"].clear();
    platform.results["get /etc/kaloinfo.conf rolling_group_id"] = failure;
    (void)Check();
    const std::string stored = platform.files["/etc/kaloinfo.conf"]["rolling_group_id"];
    EXPECT_THAT(stored, MatchesRegex("[0-9]+"));
    EXPECT_LE(stored.size(), 4U);
    EXPECT_TRUE(Lines("execl")[0].ends_with("&group_id=" + stored.substr(stored.size() - 1)));
  }
}

TEST_F(UpdateFeed, AGroupThatCannotBeStoredIsUsedAllTheSame) {
  platform.files["/etc/kaloinfo.conf"].clear();
  platform.results["info_set rolling_group_id"] = -1;
  FeedItem("VXM 1.4.0-76010", 76010);
  EXPECT_TRUE(Check().available);
  EXPECT_TRUE(Logged("3 Failed to save rolling_group_id"));
  platform.journal.Clear();
  platform.results["info_set rolling_group_id"] = 0;
  (void)Check();
  EXPECT_FALSE(Logged("3 Failed to save rolling_group_id"));
}

struct Document {
  const char* name;
  std::string text;
  const char* cause;
};

constexpr const char* kParse = "3 Failed to parse RSS V2 JSON";
constexpr const char* kChannel = "3 RSS V2 JSON format error: missing channel or item";
constexpr const char* kEmpty = "7 No update available from RSS V2 (empty item list)";
constexpr const char* kFields = "3 RSS V2 item missing required fields";
constexpr const char* kBuild = "3 RSS V2 item is invalid BuildNum";

std::string Item(const std::string& item) {
  return R"({"channel":{"item":[)" + item + "]}}";
}

std::string WithBuild(const std::string& build) {
  return Item(R"({"title":"VXM 1.4.0-76010","phase":"","model":"","BuildNum":)" + build + "}");
}

class BadDocuments : public UpdateFeed, public ::testing::WithParamInterface<Document> {};

TEST_P(BadDocuments, AreNoOfferAndSayWhy) {
  Feed(GetParam().text);
  EXPECT_EQ(Cause(), GetParam().cause);
}

INSTANTIATE_TEST_SUITE_P(
    UpdateFeed, BadDocuments,
    ::testing::Values(
        Document{"Empty", "", kParse}, Document{"Garbage", "<html>", kParse},
        Document{"Half", R"({"channel":{"item":[)", kParse},
        Document{"ByteOrderMark", "\xEF\xBB\xBF" + WithBuild("76010"), kParse},
        Document{"TrailingComma", R"({"channel":{"item":[1,]}})", kParse},
        Document{"TooDeep", std::string(2000, '[') + std::string(2000, ']'), kParse},
        Document{"TooLarge", std::string(2 << 20, ' ') + WithBuild("76010"), kParse},
        Document{"RootArray", "[]", kChannel}, Document{"RootText", R"("x")", kChannel},
        Document{"RootNumber", "1", kChannel}, Document{"RootNull", "null", kChannel},
        Document{"NoChannel", "{}", kChannel},
        Document{"ChannelText", R"({"channel":"item"})", kChannel},
        Document{"ChannelNull", R"({"channel":null})", kChannel},
        Document{"ChannelArray", R"({"channel":["item"]})", kChannel},
        Document{"NoItem", R"({"channel":{}})", kChannel}, Document{"ItemEmpty", Item(""), kEmpty},
        Document{"ItemObject", R"({"channel":{"item":{"title":"x"}}})", kEmpty},
        Document{"ItemNull", R"({"channel":{"item":null}})", kEmpty},
        Document{"ItemText", R"({"channel":{"item":"x"}})", kEmpty},
        Document{"FirstItemText", Item(R"("x")"), kFields},
        Document{"FirstItemNull", Item("null"), kFields},
        Document{"FirstItemArray", Item("[]"), kFields},
        Document{"OnlyTheFirstCounts",
                 Item(R"({},{"title":"VXM 1.4.0-76010","phase":"","model":"","BuildNum":76010})"),
                 kFields},
        Document{"NoTitle", Item(R"({"BuildNum":76010,"phase":"","model":""})"), kFields},
        Document{"NoBuild", Item(R"({"title":"x","phase":"","model":""})"), kFields},
        Document{"NoPhase", Item(R"({"title":"x","BuildNum":76010,"model":""})"), kFields},
        Document{"NoModel", Item(R"({"title":"x","BuildNum":76010,"phase":""})"), kFields},
        Document{"TitleNumber", Item(R"({"title":1,"BuildNum":76010,"phase":"","model":""})"),
                 kFields},
        Document{"TitleNull", Item(R"({"title":null,"BuildNum":76010,"phase":"","model":""})"),
                 kFields},
        Document{"BuildText", WithBuild(R"("76010")"), kBuild},
        Document{"BuildReal", WithBuild("76010.5"), kBuild},
        Document{"BuildTooLarge", WithBuild("4294967296"), kBuild},
        Document{"BuildHuge", WithBuild("1e300"), kBuild},
        Document{"BuildTrue", WithBuild("true"), kBuild},
        Document{"BuildNull", WithBuild("null"), kBuild},
        Document{"Build75999", WithBuild("75999"),
                 "3 RSS V2 item is invalid or smaller than 1.4 version: 75999"},
        Document{"BuildNegative", WithBuild("-1"),
                 "3 RSS V2 item is invalid or smaller than 1.4 version: -1"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(UpdateFeed, ADocumentMayHaveOneMebibyte) {
  const std::string item = WithBuild("76010");
  const std::string blanks((std::size_t{1} << 20) - item.size(), ' ');
  Feed(blanks + item);
  EXPECT_TRUE(Check().available);
  Feed(" " + blanks + item);
  EXPECT_EQ(Cause(), kParse);
}

TEST_F(UpdateFeed, WhatStandsBehindTheDocumentIsNotLookedAt) {
  for (const std::string rest : {"x", "{}", "\n"}) {
    Feed(WithBuild("76010") + rest);
    EXPECT_TRUE(Check().available) << rest;
  }
}

TEST_F(UpdateFeed, ABuildMayBeWrittenWithADecimalPoint) {
  Feed(WithBuild("76010.0"));
  EXPECT_TRUE(Check().available);
}

TEST_F(UpdateFeed, Build76000IsAccepted) {
  Feed(WithBuild("76000"));
  EXPECT_TRUE(Check().available);
}

}  // namespace
}  // namespace KALO::MESH::Webapi
