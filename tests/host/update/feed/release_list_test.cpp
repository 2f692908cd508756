#include "host/update/feed/release_list.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <functional>

#include "host/core/object_reader.h"
#include "host/core/strict_json.h"
#include "tests/host/update/feed/example_list.h"

namespace kalo::feed {
namespace {

ReleaseList Full() {
  ReleaseList list =
      ExampleList({Example("VXM 1.4.0-76010", 76010, 0, "0123", "Beta"),
                   Example("VXM 1.3.1-9346 Update 2", 9346, 2), Example("VXM 1.3.1-9346", 9346)});
  list.stones = {9346};
  list.field_builds = {9300, 9200};
  SortReleaseList(list);
  return list;
}

TEST(ReleaseList, ReadsWhatItWrites) {
  const std::string text = WriteReleaseList(Full());
  const ReleaseList list = ParseReleaseList(text, "list");
  EXPECT_EQ(list.unique, "kalo_m1");
  EXPECT_EQ(list.number, 7);
  EXPECT_EQ(list.expires, 2000000000);
  ASSERT_EQ(list.releases.size(), 3U);
  EXPECT_EQ(list.releases[0].version, "VXM 1.3.1-9346");
  EXPECT_EQ(list.releases[1].version, "VXM 1.3.1-9346 Update 2");
  EXPECT_EQ(list.releases[1].nano, 2);
  EXPECT_EQ(list.releases[2].build, 76010);
  EXPECT_EQ(list.releases[2].phase, "Beta");
  EXPECT_EQ(list.releases[2].groups, "0123");
  EXPECT_EQ(list.releases[2].file.size, 1000U);
  EXPECT_EQ(list.stones, std::vector<std::int32_t>{9346});
  EXPECT_EQ(list.field_builds, (std::vector<std::int32_t>{9200, 9300}));
  EXPECT_EQ(WriteReleaseList(list), text);
}

TEST(ReleaseList, TellsSmallUpdatesByTheirTextAlsoNumberZero) {
  EXPECT_TRUE(Example("VXM 1.3.1-9346 Update 0", 9346).IsSmall());
  EXPECT_FALSE(Example("VXM 1.3.1-9346", 9346).IsSmall());
}

TEST(ReleaseList, ABetaOrAStagedReleaseIsNotForAll) {
  EXPECT_TRUE(Example("VXM 1.4.0-76010", 76010).IsForAll());
  EXPECT_FALSE(Example("VXM 1.4.0-76010", 76010, 0, "012345678").IsForAll());
  EXPECT_FALSE(Example("VXM 1.4.0-76010", 76010, 0, "0123456789", "Beta").IsForAll());
}

TEST(ReleaseList, PassesOverMembersThatItDoesNotKnow) {
  Json::Value root = *ParseStrictJson(WriteReleaseList(Full()));
  root["later"] = 1;
  root["releases"][0]["colour"] = "blue";
  EXPECT_EQ(ParseReleaseList(WriteJson(root), "list").releases.size(), 3U);
}

TEST(ReleaseList, KeepsWhatIsNewInEachLanguage) {
  ReleaseList list = Full();
  list.releases[0].notes = {{"enu", "Faster.\nSafer."}, {"ger", "Schneller."}};
  const ReleaseList back = ParseReleaseList(WriteReleaseList(list), "list");
  EXPECT_EQ(back.releases[0].notes, list.releases[0].notes);
  EXPECT_TRUE(back.releases[1].notes.empty());
}

struct Damage {
  const char* name;
  std::function<void(Json::Value&)> apply;
};

class DamagedLists : public testing::TestWithParam<Damage> {};

TEST_P(DamagedLists, AreRefused) {
  Json::Value root = *ParseStrictJson(WriteReleaseList(Full()));
  GetParam().apply(root);
  EXPECT_THROW((void)ParseReleaseList(WriteJson(root), "list"), FormatError);
}

INSTANTIATE_TEST_SUITE_P(
    ReleaseList, DamagedLists,
    testing::Values(
        Damage{"OtherFormat", [](Json::Value& r) { r["format"] = 2; }},
        Damage{"NoNumber", [](Json::Value& r) { r.removeMember("number"); }},
        Damage{"NumberZero", [](Json::Value& r) { r["number"] = 0; }},
        Damage{"NumberTooLarge", [](Json::Value& r) { r["number"] = Json::Int64{1} << 40; }},
        Damage{"ModelOutsideItsFolder", [](Json::Value& r) { r["unique"] = "../x"; }},
        Damage{"ExpiryAsText", [](Json::Value& r) { r["expires"] = "soon"; }},
        Damage{"ReleasesNoArray", [](Json::Value& r) { r["releases"] = Json::objectValue; }},
        Damage{"ReleaseNoObject", [](Json::Value& r) { r["releases"][0] = 1; }},
        Damage{"VersionNoVersion", [](Json::Value& r) { r["releases"][0]["version"] = "1.4"; }},
        Damage{"VersionNotInDisplayForm",
               [](Json::Value& r) { r["releases"][0]["version"] = "76010"; }},
        Damage{"VersionTwice", [](Json::Value& r) { r["releases"][1] = r["releases"][0]; }},
        Damage{"UnknownPhase", [](Json::Value& r) { r["releases"][0]["phase"] = "beta"; }},
        Damage{"GroupsNoDigits", [](Json::Value& r) { r["releases"][0]["groups"] = "0-4"; }},
        Damage{"GroupsNotAscending", [](Json::Value& r) { r["releases"][0]["groups"] = "10"; }},
        Damage{"GroupTwice", [](Json::Value& r) { r["releases"][0]["groups"] = "00"; }},
        Damage{"NoFile", [](Json::Value& r) { r["releases"][0].removeMember("file"); }},
        Damage{"FileElsewhere",
               [](Json::Value& r) { r["releases"][0]["file"]["path"] = "/etc/passwd"; }},
        Damage{"FileAbove", [](Json::Value& r) { r["releases"][0]["file"]["path"] = "a/../../b"; }},
        Damage{"FileOfAnotherHost",
               [](Json::Value& r) { r["releases"][0]["file"]["path"] = "@other:8/x?y"; }},
        Damage{"SizeZero", [](Json::Value& r) { r["releases"][0]["file"]["size"] = 0; }},
        Damage{"HashTooShort", [](Json::Value& r) { r["releases"][0]["file"]["sha256"] = "abc"; }},
        Damage{"NotesNoObject", [](Json::Value& r) { r["releases"][0]["notes"] = "text"; }},
        Damage{"NotesNoText", [](Json::Value& r) { r["releases"][0]["notes"]["enu"] = 1; }},
        Damage{
            "NotesTooLong",
            [](Json::Value&
                   r) { r["releases"][0]["notes"]["enu"] = std::string(kLongestNotes + 1, 'x'); }},
        Damage{"StoneNoNumber", [](Json::Value& r) { r["stones"][0] = "9346"; }},
        Damage{"StoneNegative", [](Json::Value& r) { r["stones"][0] = -1; }}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace kalo::feed
