#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "host/core/strict_json.h"
#include "host/update/feed/list_check.h"
#include "tests/programs/kalo_patch_fixture.h"

namespace kalo {
namespace {

namespace fs = std::filesystem;

class PublishTest : public KaloPatchTest {
 protected:
  PublishTest() {
    EXPECT_EQ(Keygen("maker").status, 0);
    keys_.AddFile(Path("maker.pem"));
  }

  // Makes and signs a patch. @return its path.
  [[nodiscard]] std::string Patch(const std::string& name, const std::string& version,
                                  const std::string& model = "kalo_x1",
                                  const std::string& key = "maker") const {
    const Outcome made =
        Run({"make", Path("in"), "--unique", model, "--version", version, "--updater",
             Path("updater"), "--key", Path(key + ".key"), "-o", Path(name)});
    EXPECT_EQ(made.status, 0) << made.err;
    return Path(name);
  }

  [[nodiscard]] Outcome Publish(std::vector<std::string> words) const {
    words.insert(words.begin(), {"publish", "--feed", Path("feed"), "--key", Path("maker.key")});
    return Run(words);
  }

  [[nodiscard]] std::string Feed(const std::string& name) const {
    return test::Contents(Path("feed/" + name));
  }

  // The list as a router would take it.
  [[nodiscard]] feed::ReleaseList List(const std::string& model = "kalo_x1") const {
    const std::string path = "v1/" + model + "/list.json";
    return feed::CheckReleaseList(Feed(path), Feed(path + ".sig"), keys_,
                                  {model, 0, static_cast<std::int64_t>(std::time(nullptr))});
  }

  // @return the build that a version-2 document offers; 0: none.
  [[nodiscard]] int Offered(const std::string& document) const {
    const auto root = ParseStrictJson(Feed("v2/kalo_x1/" + document));
    EXPECT_TRUE(root) << document;
    if (!root) return -1;
    const Json::Value& items = (*root)["channel"]["item"];
    return items.empty() ? 0 : items[0]["BuildNum"].asInt();
  }

  patch::KeyRing keys_;
};

TEST_F(PublishTest, WritesTheSignedListThePatchAndTheDocuments) {
  const std::string patch = Patch("a.patch", "VXM 1.4.0-76010");
  const Outcome outcome = Publish({patch, "--field-build", "76000"});
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  const feed::ReleaseList list = List();
  ASSERT_EQ(list.releases.size(), 1U);
  EXPECT_EQ(list.number, 1);
  EXPECT_EQ(list.releases[0].version, "VXM 1.4.0-76010");
  EXPECT_TRUE(list.releases[0].IsForAll());
  EXPECT_EQ(list.releases[0].file.path, "patches/kalo_x1/76010.patch");
  EXPECT_EQ(Feed(list.releases[0].file.path), test::Contents(patch));
  EXPECT_EQ(list.releases[0].file.size, fs::file_size(patch));
  for (const char digit : {'0', '9'}) {
    const std::string name(1, digit);
    EXPECT_EQ(Offered("76000/" + name + ".json"), 76010);
    EXPECT_EQ(Offered("76000/" + name + ".stable.json"), 76010);
    EXPECT_EQ(Offered("76010/" + name + ".json"), 0);
  }
  EXPECT_FALSE(Feed("v2/empty.json").empty());
  EXPECT_EQ(ModeOf(Path("feed/v1/kalo_x1/list.json")), 0644U);
}

TEST_F(PublishTest, TellsWhatIsNewInEachLanguage) {
  const std::string patch = Patch("a.patch", "VXM 1.4.0-76010");
  std::ofstream(Path("en.txt")) << "Faster.";
  std::ofstream(Path("de.txt")) << "Schneller.";
  ASSERT_EQ(Publish({"--notes", "enu=" + Path("en.txt"), "--notes", "ger=" + Path("de.txt"), patch})
                .status,
            0);
  const std::map<std::string, std::string> both = {{"enu", "Faster."}, {"ger", "Schneller."}};
  EXPECT_EQ(List().releases[0].notes, both);
  // Widening a rollout does not take them away.
  ASSERT_EQ(Publish({patch, "--groups", "0-4"}).status, 0);
  EXPECT_EQ(List().releases[0].notes, both);
  EXPECT_EQ(Publish({patch, "--notes", "notes.txt"}).status, 2);
  EXPECT_EQ(Publish({patch, "--notes", "enu=/none"}).status, 1);
}

// The list and its signature are two files.
TEST_F(PublishTest, OneThatBrokeOffIsMadeGoodByPublishingAgainHoweverOften) {
  ASSERT_EQ(Publish({Patch("a.patch", "VXM 1.4.0-76010")}).status, 0);
  const std::string before = Feed("v1/kalo_x1/list.json");
  const std::string next = Patch("b.patch", "VXM 1.4.0-76020");
  ASSERT_EQ(Publish({next}).status, 0);
  for (const char* groups : {"0-3", "0-6"}) {
    std::ofstream(Path("feed/v1/kalo_x1/list.json")) << before;  // the new signature, the old list
    EXPECT_THROW((void)List(), std::runtime_error);
    const Outcome again = Publish({next, "--groups", groups});
    ASSERT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(List().releases.size(), 2U);
    EXPECT_EQ(List().number, 2);
  }
}

TEST_F(PublishTest, APatchThatIsThereKeepsItsTime) {
  const std::string patch = Patch("a.patch", "VXM 1.4.0-76010");
  ASSERT_EQ(Publish({patch, "--groups", "0-4"}).status, 0);
  const fs::path published = Path("feed/patches/kalo_x1/76010.patch");
  const auto long_ago = fs::last_write_time(published) - std::chrono::hours(24);
  fs::last_write_time(published, long_ago);
  ASSERT_EQ(Publish({patch}).status, 0);
  EXPECT_EQ(fs::last_write_time(published), long_ago);
  std::ofstream(published) << "half";
  ASSERT_EQ(Publish({patch}).status, 0);
  EXPECT_EQ(test::Contents(published), test::Contents(patch));
}

TEST_F(PublishTest, SignsNothingThatNoRouterCouldRead) {
  const std::string patch = Patch("a.patch", "VXM 1.4.0-76010");
  EXPECT_EQ(Publish({"--field-build", "-1", patch}).status, 2);
  std::ofstream(Path("latin.txt")) << "Gr\xFC\xDF";
  EXPECT_EQ(Publish({"--notes", "ger=" + Path("latin.txt"), patch}).status, 1);
  EXPECT_FALSE(fs::exists(Path("feed/v1/kalo_x1/list.json")));
}

TEST_F(PublishTest, AMistypedModelGetsNoListOfItsOwn) {
  EXPECT_EQ(Publish({"--unique", "kalo_x2"}).status, 1);
  EXPECT_EQ(Publish({"--unique", "../kalo_x1"}).status, 2);
  ASSERT_EQ(Publish({"--unique", "kalo_x1", Patch("a.patch", "VXM 1.4.0-76010")}).status, 0);
  EXPECT_EQ(List().releases.size(), 1U) << "what stands behind is a patch";
  EXPECT_FALSE(fs::exists(Path("feed/v1/kalo_x2")));
}

TEST_F(PublishTest, StagesARolloutByGroupsAndWidensIt) {
  const std::string patch = Patch("a.patch", "VXM 1.4.0-76010");
  ASSERT_EQ(Publish({patch, "--field-build", "76000", "--groups", "0-2,7"}).status, 0);
  EXPECT_EQ(List().releases[0].groups, "0127");
  EXPECT_EQ(Offered("76000/2.json"), 76010);
  EXPECT_EQ(Offered("76000/3.json"), 0);
  ASSERT_EQ(Publish({patch}).status, 0);
  EXPECT_TRUE(List().releases[0].IsForAll());
  EXPECT_EQ(List().releases.size(), 1U);
  EXPECT_EQ(List().number, 2);
  EXPECT_EQ(Offered("76000/3.json"), 76010) << "the build in the field is remembered";
}

TEST_F(PublishTest, StagesARolloutByAShareOfAllRouters) {
  const std::string patch = Patch("a.patch", "VXM 1.4.0-76010");
  ASSERT_EQ(Publish({patch, "--field-build", "76000", "--share", "12.5"}).status, 0);
  EXPECT_EQ(List().releases[0].groups, "01");
  EXPECT_EQ(List().releases[0].share, 1250);
  EXPECT_FALSE(List().releases[0].IsForAll());
  EXPECT_EQ(Offered("76000/1.json"), 76010);
  EXPECT_EQ(Offered("76000/2.json"), 0);
  ASSERT_EQ(Publish({patch, "--share", "100"}).status, 0);
  EXPECT_TRUE(List().releases[0].IsForAll());
  EXPECT_EQ(Publish({patch, "--share", "10", "--groups", "0"}).status, 2);
  for (const char* share : {"0", "-1", "101", "x", ""}) {
    EXPECT_EQ(Publish({patch, "--share", share}).status, 2) << share;
  }
}

TEST_F(PublishTest, ABetaReleaseStandsInTheBetaDocumentsOnly) {
  const std::string patch = Patch("a.patch", "VXM 1.4.0-76010");
  ASSERT_EQ(Publish({patch, "--field-build", "76000", "--phase", "Beta"}).status, 0);
  EXPECT_EQ(Offered("76000/0.json"), 76010);
  EXPECT_EQ(Offered("76000/0.stable.json"), 0);
  EXPECT_EQ(Publish({patch, "--phase", "beta"}).status, 2);
}

TEST_F(PublishTest, PublishesPatchesOfSeveralModelsAtOnce) {
  ASSERT_EQ(
      Publish({Patch("a.patch", "VXM 1.4.0-76010"), Patch("b.patch", "VXM 1.4.0-76010", "kalo_x2")})
          .status,
      0);
  EXPECT_EQ(List("kalo_x1").releases.size(), 1U);
  EXPECT_EQ(List("kalo_x2").releases.size(), 1U);
}

TEST_F(PublishTest, AFullReleaseBelow76000NeedsASmallOneBesideIt) {
  const std::string full = Patch("full.patch", "VXM 1.3.2-9400");
  const Outcome alone = Publish({full});
  EXPECT_EQ(alone.status, 1);
  EXPECT_NE(alone.err.find("VXM 1.3.2-9400 Update 0"), std::string::npos) << alone.err;
  EXPECT_FALSE(fs::exists(Path("feed/v1/kalo_x1/list.json")));
  ASSERT_EQ(Publish({full, Patch("small.patch", "VXM 1.3.2-9400 Update 0")}).status, 0);
  ASSERT_EQ(List().releases.size(), 2U);
  EXPECT_TRUE(List().releases[1].IsSmall());
  EXPECT_EQ(List().releases[1].file.path, "patches/kalo_x1/9400-0.patch");
}

TEST_F(PublishTest, APublishedVersionNeverChangesItsContents) {
  ASSERT_EQ(Publish({Patch("a.patch", "VXM 1.4.0-76010")}).status, 0);
  const std::string before = Feed("patches/kalo_x1/76010.patch");
  (void)folder_.Write("in/data", "other");
  const Outcome again = Publish({Patch("b.patch", "VXM 1.4.0-76010")});
  EXPECT_EQ(again.status, 1);
  EXPECT_NE(again.err.find("published already"), std::string::npos) << again.err;
  EXPECT_EQ(Feed("patches/kalo_x1/76010.patch"), before);
  EXPECT_EQ(List().number, 1);
}

TEST_F(PublishTest, RefusesForeignPatchesAndForeignLists) {
  ASSERT_EQ(Keygen("other").status, 0);
  const std::string foreign = Patch("a.patch", "VXM 1.4.0-76010", "kalo_x1", "other");
  EXPECT_EQ(Publish({foreign}).status, 1);
  const std::string own = Patch("b.patch", "VXM 1.4.0-76010");
  ASSERT_EQ(Publish({own}).status, 0);
  (void)folder_.Write("feed/v1/kalo_x1/list.json", Feed("v1/kalo_x1/list.json") + " ");
  const Outcome outcome = Publish({own});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.err.find("not signed with this key"), std::string::npos) << outcome.err;
}

TEST_F(PublishTest, SignsAListAnewAndKeepsSteppingStones) {
  ASSERT_EQ(Publish({Patch("a.patch", "VXM 1.4.0-76010"), "--stone"}).status, 0);
  ASSERT_EQ(Publish({"--unique", "kalo_x1", "--valid-days", "1"}).status, 0);
  const feed::ReleaseList list = List();
  EXPECT_EQ(list.number, 2);
  EXPECT_EQ(list.stones, std::vector<std::int32_t>{76010});
  EXPECT_LE(list.expires, static_cast<std::int64_t>(std::time(nullptr)) + 86400);
}

TEST_F(PublishTest, LeavesUnchangedDocumentsAsTheyAre) {
  const std::string patch = Patch("a.patch", "VXM 1.4.0-76010");
  ASSERT_EQ(Publish({patch, "--field-build", "76000"}).status, 0);
  const fs::path document = Path("feed/v2/kalo_x1/76000/0.json");
  const auto time = fs::last_write_time(document) - std::chrono::hours(1);
  fs::last_write_time(document, time);
  ASSERT_EQ(Publish({patch}).status, 0);
  EXPECT_EQ(fs::last_write_time(document), time);
}

TEST_F(PublishTest, SaysWhatIsWrongWithItsArguments) {
  EXPECT_EQ(Publish({}).status, 2);
  for (const char* groups : {"", "a", "4-2", "0-", "0,", ",0", "0--4", "10"}) {
    EXPECT_EQ(Publish({"--unique", "kalo_x1", "--groups", groups}).status, 2) << groups;
  }
  EXPECT_EQ(Publish({Path("missing.patch")}).status, 1);
}

}  // namespace
}  // namespace kalo
