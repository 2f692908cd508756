#include <stdexcept>

#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

using IdGroup = UpgradeHandler::IdGroup;
using PatchInfo = UpgradeHandler::PatchInfo;

constexpr const char* kPath = "/tmp/mesh_patch";

// "unique:id,id*": the star tells that the CAP is in it.
std::string Describe(const std::vector<IdGroup>& groups) {
  std::string text;
  for (const IdGroup& group : groups) {
    text += group.unique + ":";
    for (const std::int32_t id : group.ids) text += std::to_string(id) + ",";
    text += group.has_cap ? "* " : " ";
  }
  return text;
}

std::string Failure(const std::function<void()>& body) {
  try {
    body();
  } catch (const WebapiException& e) {
    return e.what();
  }
  return "";
}

class Groups : public fake::ModuleTest {
 protected:
  std::string ToText(const std::vector<IdGroup>& groups, std::string text = "") {
    handler.UniqueGroupsToStr(groups, text);
    return text;
  }
  std::string Parse(const std::string& text, std::vector<IdGroup> groups = {}) {
    handler.UniqueGroupFromStr(text, groups);
    return Describe(groups);
  }
  std::string List(const std::vector<std::int32_t>& ids) {
    std::vector<IdGroup> groups = {{"stale", false, {1}}};
    handler.GetUniqueList(ids, groups);
    return Describe(groups);
  }
};

TEST_F(Groups, TheTextHasTwoBlanksBehindTheModel) {
  EXPECT_EQ(ToText({{"kalo_soc_m1", true, {0, 3}}, {"kalo_soc_m2", false, {5}}}),
            "kalo_soc_m1  0 3; kalo_soc_m2  5;");
}

TEST_F(Groups, AGroupWithoutIdsLeavesNoTrace) {
  EXPECT_EQ(ToText({{"A", false, {1, 2}}, {"B", false, {}}}), "A  1 2;");
  EXPECT_EQ(ToText({{"B", false, {}}, {"A", false, {1}}}), "A  1;");
  EXPECT_EQ(ToText({{"B", false, {}}}), "");
}

TEST_F(Groups, TheTextIsAppendedTo) {
  EXPECT_EQ(ToText({{"A", false, {-1}}}, "old"), "old A  -1;");
  EXPECT_EQ(ToText({}, "old"), "old");
}

TEST_F(Groups, ParsesWhatIsWritten) {
  EXPECT_EQ(Parse("A  1 2; B  3;"), "A:1,2, B:3, ");
  EXPECT_EQ(Parse("A  0 4;"), "A:0,4,* ");
}

TEST_F(Groups, IgnoresATailThatIsNotClosed) {
  EXPECT_EQ(Parse("A  1 2"), "");
  EXPECT_EQ(Parse("A 1;B 2"), "A:1, ");
  EXPECT_EQ(Parse(""), "");
  EXPECT_EQ(Parse(";;;"), "");
}

TEST_F(Groups, EverySegmentIsAGroupEvenABlankOne) {
  EXPECT_EQ(Parse(";;A 1;;"), "A:1, ");
  EXPECT_EQ(Parse("; ;"), ": ");
  EXPECT_EQ(Parse("A;"), "A: ");
}

TEST_F(Groups, StopsAtTheFirstWordThatIsNoNumber) {
  EXPECT_EQ(Parse("A 1 x 2;"), "A:1, ");
  EXPECT_EQ(Parse("A 1 99999999999 2;"), "A:1, ");
  EXPECT_EQ(Parse("A x 0;"), "A: ");
}

TEST_F(Groups, ParsingOnlyAppends) {
  EXPECT_EQ(Parse("A 1;", {{"Z", false, {9}}}), "Z:9, A:1, ");
}

TEST_F(Groups, ListsModelsInOrderAndIdsAsGiven) {
  platform.files["/etc.defaults/kaloinfo.conf"]["unique"] = "M1";
  platform.AddNode(0, "elsewhere", 1);
  platform.AddNode(3, "M2", 1);
  platform.AddNode(7, "M2", 1);
  EXPECT_EQ(List({7, 0, 3}), "M1:0,* M2:7,3, ");
  EXPECT_THAT(Lines(), fake::ElementsAre("client", "node_infos", "access_infos",
                                         "get /etc.defaults/kaloinfo.conf unique 8192"));
}

TEST_F(Groups, TheCapIsInItsGroupWhereverItStands) {
  platform.files["/etc.defaults/kaloinfo.conf"]["unique"] = "M1";
  platform.AddNode(3, "M1", 1);
  EXPECT_EQ(List({0, 3}), "M1:0,3,* ");
  EXPECT_EQ(List({3, 0}), "M1:3,0,* ");
}

TEST_F(Groups, OnlyNode0NeedsNoNodeList) {
  platform.files["/etc.defaults/kaloinfo.conf"]["unique"] = "M1";
  EXPECT_EQ(List({0, 0}), "M1:0,0,* ");
  EXPECT_THAT(Lines("client"), fake::IsEmpty());
}

TEST_F(Groups, AnUnreadableModelOfTheCapDropsIt) {
  platform.AddNode(3, "M2", 1);
  platform.results["get /etc.defaults/kaloinfo.conf unique"] = -1;
  EXPECT_EQ(List({0, 3}), "M2:3, ");
  EXPECT_THAT(Logs(), fake::ElementsAre("3 Failed to get the unique name of CAP"));
}

TEST_F(Groups, AnEmptyModelOfTheCapIsAModel) {
  platform.results["get /etc.defaults/kaloinfo.conf unique"] = 0;
  EXPECT_EQ(List({0}), ":0,* ");
  EXPECT_THAT(Logs(), fake::IsEmpty());
}

TEST_F(Groups, AnIdOfNoNodeFails) {
  EXPECT_EQ(Failure([this] { List({5}); }), "Failed to get unique");
  platform.AddNode(3, "M2", 1);
  EXPECT_EQ(Failure([this] { List({5}); }), "Failed to get unique");
}

TEST_F(Groups, OnlyTheWantedNodeIsAskedForItsModel) {
  platform.AddNode(3, "M3", 1);
  platform.AddNode(5, "M5", 1);
  platform.AddNode(7, "M7", 1);
  platform.throwers["unique M3"] = fake::Throws(std::runtime_error("no model"));
  platform.throwers["unique M7"] = fake::Throws(std::runtime_error("no model"));
  platform.throwers["node_id 7"] = fake::Throws(std::runtime_error("no id"));
  EXPECT_EQ(List({5}), "M5:5, ");
}

TEST_F(Groups, ALongListAsksEachNodeForItsIdOnce) {
  std::vector<std::int32_t> ids;
  for (int id = 1; id <= 40; ++id) {
    platform.AddNode(id, "M", 1);
    ids.push_back(41 - id);
    ids.push_back(id);
  }
  int asked = 0;
  platform.throwers["node_id"] = [&asked] { ++asked; };
  List(ids);
  EXPECT_EQ(asked, 40);
}

class Records : public fake::ModuleTest {
 protected:
  void SetUp() override {
    platform.AddNode(0, "M1", 1);
    platform.AddNode(3, "M2", 1);
    platform.files["/etc.defaults/kaloinfo.conf"]["unique"] = "M1";
  }
  static PatchInfo Offer(const std::string& type = "hbx") {
    PatchInfo info;
    info.available = true;
    info.type = type;
    info.version = "VXM 1.4.0-5";
    return info;
  }
  std::string Read(bool nano, bool promo) {
    info = PatchInfo{true, "type", "old", 1, 2, true, true};
    groups = {{"stale", false, {1}}};
    handler.PatchAvailableFromFile(info, groups, nano, promo);
    return Describe(groups);
  }
  PatchInfo info;
  std::vector<IdGroup> groups;
};

TEST_F(Records, AnAvailablePatchWritesItsThreeKeysInOrder) {
  handler.PatchAvailableToFile({0, 3}, Offer(), false);
  EXPECT_THAT(Lines("set "), fake::ElementsAre("set /tmp/mesh_patch avaliable_full=true",
                                               "set /tmp/mesh_patch patch_full=VXM 1.4.0-5",
                                               "set /tmp/mesh_patch uniques_full=M1  0; M2  3;"));
}

TEST_F(Records, KindAndPromotionChooseTheKeys) {
  handler.PatchAvailableToFile({3}, Offer("smallupdate"), false);
  handler.PatchAvailableToFile({3}, Offer("smallupdate"), true);
  handler.PatchAvailableToFile({3}, Offer("Smallupdate"), false);
  EXPECT_THAT(Lines("set /tmp/mesh_patch ava"),
              fake::ElementsAre("set /tmp/mesh_patch avaliable_nano=true",
                                "set /tmp/mesh_patch avaliable_promo=true",
                                "set /tmp/mesh_patch avaliable_full=true"));
  EXPECT_EQ(platform.files[kPath]["patch_nano"], "VXM 1.4.0-5");
  EXPECT_EQ(platform.files[kPath]["uniques_promo"], "M2  3;");
}

TEST_F(Records, NoIdsWriteEmptyGroups) {
  handler.PatchAvailableToFile({}, Offer(), false);
  EXPECT_EQ(platform.files[kPath].at("uniques_full"), "");
}

TEST_F(Records, AnUnavailablePatchWritesTheSharedOverVersion) {
  PatchInfo none;
  none.over_version = true;
  handler.PatchAvailableToFile({3}, none, false);
  none.over_version = false;
  handler.PatchAvailableToFile({3}, none, true);
  EXPECT_THAT(Lines(), fake::ElementsAre("set /tmp/mesh_patch avaliable_full=false",
                                         "set /tmp/mesh_patch over_version=true",
                                         "set /tmp/mesh_patch avaliable_promo=false",
                                         "set /tmp/mesh_patch over_version=false"));
}

TEST_F(Records, EveryFailingWriteHasItsMessage) {
  const auto fails = [this](const std::string& key, bool available) {
    platform.results = {{"set /tmp/mesh_patch " + key, -1}};
    PatchInfo record = Offer();
    record.available = available;
    return Failure([&] { handler.PatchAvailableToFile({3}, record, false); });
  };
  EXPECT_EQ(fails("avaliable_full", true), "Failed to write available key to patch info file");
  EXPECT_EQ(fails("patch_full", true), "Failed to write version to patch info file");
  EXPECT_EQ(fails("uniques_full", true), "Failed to write uniques key to patch info file");
  EXPECT_EQ(fails("avaliable_full", false), "Failed to remove available key in patch info file");
  EXPECT_EQ(fails("over_version", false), "Failed to write over version to patch info file");
}

TEST_F(Records, AResultOfZeroIsNoFailureOfAWrite) {
  platform.results = {{"set /tmp/mesh_patch avaliable_full", 0},
                      {"set /tmp/mesh_patch patch_full", 0},
                      {"set /tmp/mesh_patch uniques_full", 0},
                      {"set /tmp/mesh_patch over_version", 0}};
  EXPECT_NO_THROW(handler.PatchAvailableToFile({3}, Offer(), false));
  EXPECT_NO_THROW(handler.PatchAvailableToFile({3}, PatchInfo(), false));
}

TEST_F(Records, AnUnknownIdLeavesTheGroupsUnwritten) {
  EXPECT_EQ(Failure([this] { handler.PatchAvailableToFile({9}, Offer(), false); }),
            "Failed to get unique");
  EXPECT_EQ(platform.files[kPath]["avaliable_full"], "true");
  EXPECT_EQ(platform.files[kPath]["patch_full"], "VXM 1.4.0-5");
  EXPECT_FALSE(platform.files[kPath].contains("uniques_full"));
}

TEST_F(Records, ReadsARecordBackAndOnlyWhatTheFileHolds) {
  platform.files[kPath] = {
      {"avaliable_promo", "true"}, {"patch_promo", "v"}, {"uniques_promo", "A  0 1;"}};
  EXPECT_EQ(Read(false, true), "A:0,1,* ");
  EXPECT_TRUE(info.available);
  EXPECT_EQ(info.version, "v");
  EXPECT_EQ(info.type, "type");
  EXPECT_EQ(info.build_num, 1);
  EXPECT_THAT(Lines(), fake::ElementsAre("get /tmp/mesh_patch avaliable_promo 8192",
                                         "get /tmp/mesh_patch patch_promo 8192",
                                         "get /tmp/mesh_patch uniques_promo 8192"));
}

TEST_F(Records, OnlyExactlyTrueIsAvailable) {
  for (const char* value : {"false", "True", "true ", ""}) {
    platform.files[kPath] = {{"avaliable_full", value}};
    EXPECT_EQ(Read(false, false), "");
    EXPECT_FALSE(info.available);
    EXPECT_EQ(info.version, "old");
  }
}

TEST_F(Records, AnAvailabilityThatWasNotReadIsNone) {
  for (const int result : {0, -1}) {
    platform.files[kPath] = {{"avaliable_full", "true"}};
    platform.results["get /tmp/mesh_patch avaliable_full"] = result;
    EXPECT_EQ(Read(false, false), "");
    EXPECT_FALSE(info.available);
  }
}

TEST_F(Records, AMissingVersionFails) {
  for (const int result : {0, -1}) {
    platform.files[kPath] = {{"avaliable_nano", "true"}};
    platform.results["get /tmp/mesh_patch patch_nano"] = result;
    EXPECT_EQ(Failure([this] { Read(true, false); }),
              "Failed to get patch version from patch info file");
  }
}

TEST_F(Records, MissingGroupsAreNoneButAFailingReadFails) {
  platform.files[kPath] = {{"avaliable_full", "true"}, {"patch_full", "v"}};
  EXPECT_EQ(Read(false, false), "");
  platform.results["get /tmp/mesh_patch uniques_full"] = -1;
  EXPECT_EQ(Failure([this] { Read(false, false); }),
            "Failed to get model uniques from patch info file");
}

TEST_F(Records, NanoAndPromoTogetherTouchNothing) {
  EXPECT_EQ(Read(true, true), "stale:1, ");
  EXPECT_TRUE(info.available);
  EXPECT_EQ(info.version, "old");
  EXPECT_THAT(Lines(), fake::IsEmpty());
}

}  // namespace
}  // namespace KALO::MESH::Webapi
