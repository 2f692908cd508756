#include <limits>

#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

class VersionStrings : public fake::ModuleTest {
 protected:
  // The outputs begin with values that a refusal must clear.
  bool Parse(const std::string& text) {
    os = "old";
    build = -7;
    nano = -7;
    return handler.ParseVersion(text, os, build, nano);
  }
  void ExpectRefused(const std::string& text) {
    EXPECT_FALSE(Parse(text)) << text;
    EXPECT_EQ(os, "") << text;
    EXPECT_EQ(build, 0) << text;
    EXPECT_EQ(nano, 0) << text;
  }
  std::string os;
  int build = 0;
  int nano = 0;
};

TEST_F(VersionStrings, ParsesTheDisplayForm) {
  EXPECT_TRUE(Parse("VXM 1.3.1-9346 Update 4"));
  EXPECT_EQ(os, "1.3.1");
  EXPECT_EQ(build, 9346);
  EXPECT_EQ(nano, 4);
  EXPECT_TRUE(Parse("VXM 1.3.1-9346"));
  EXPECT_EQ(os, "1.3.1");
  EXPECT_EQ(build, 9346);
  EXPECT_EQ(nano, 0);
}

TEST_F(VersionStrings, ASuccessIsLoggedAtErrorPriority) {
  Parse("VXM 1.3.1-9346 Update 4");
  EXPECT_THAT(Logs(), fake::ElementsAre("3 Parsed 1.3.1-9346 4"));
}

TEST_F(VersionStrings, SkipsOneWordWhateverItSays) {
  EXPECT_TRUE(Parse("VXM 1.3.1-9346 Hotfix 7"));
  EXPECT_EQ(nano, 7);
  EXPECT_TRUE(Parse("VXM 1.3.1-9346 U 7"));
  EXPECT_EQ(nano, 7);
  EXPECT_TRUE(Parse("VXM 1.3.1-9346 Hot fix 7"));
  EXPECT_EQ(nano, 0);
  EXPECT_TRUE(Parse("VXM 1.3.1-9346 Update"));
  EXPECT_EQ(nano, 0);
  EXPECT_TRUE(Parse("VXM 1.3.1-9346Update 4"));
  EXPECT_EQ(nano, 4);
}

TEST_F(VersionStrings, RefusesOtherTextWithEmptyOutputs) {
  for (const char* text : {"1.3.1-9346", "VXM 1.3.1-Update", "VXM 1.3.1", "", "-", "VXM", "VXM -1",
                           " VXM 1.3.1-9346", "vxm 1.3.1-9346", "VXM 1.3.1-"}) {
    ExpectRefused(text);
  }
  EXPECT_THAT(Logs(), fake::IsEmpty());
}

TEST_F(VersionStrings, CutsAtTheFirstHyphen) {
  EXPECT_TRUE(Parse("VXM 1.3.1-5-9"));
  EXPECT_EQ(build, 5);
}

TEST_F(VersionStrings, ReadsSignsAsAScanDoes) {
  EXPECT_TRUE(Parse("VXM 1.3.1- +5 Update -4"));
  EXPECT_EQ(build, 5);
  EXPECT_EQ(nano, -4);
  ExpectRefused("VXM 1.3.1-+-5");
}

TEST_F(VersionStrings, ANumberThatDoesNotFitCountsAsNone) {
  ExpectRefused("VXM 1.3.1-99999999999999999999");
  EXPECT_TRUE(Parse("VXM 1.3.1-9346 Update 99999999999999999999"));
  EXPECT_EQ(nano, 0);
}

TEST_F(VersionStrings, BoundsTheOsVersion) {
  EXPECT_TRUE(Parse("VXM " + std::string(600, '1') + "-5"));
  EXPECT_EQ(os, std::string(511, '1'));
}

TEST_F(VersionStrings, ComparesBuildFirst) {
  EXPECT_EQ(handler.CompareVersion("1.4-9347", "1.3-9346 Update 9"), 1);
  EXPECT_EQ(handler.CompareVersion("1.3-9346 Update 9", "1.4-9347"), -1);
}

TEST_F(VersionStrings, EqualBuildsGiveTheUnfoldedNanoDifference) {
  EXPECT_EQ(handler.CompareVersion("1.3-9346 Update 4", "1.3-9346 Update 1"), 3);
  EXPECT_EQ(handler.CompareVersion("1.3-9346 Update 1", "1.3-9346 Update 4"), -3);
  EXPECT_EQ(handler.CompareVersion("1.3-9346", "9.9-9346"), 0);
}

TEST_F(VersionStrings, AnOverflowingDifferenceKeepsItsSign) {
  EXPECT_GT(handler.CompareVersion("1-5 x 2147483647", "1-5 x -5"), 0);
  EXPECT_LT(handler.CompareVersion("1-5 x -2147483648", "1-5 x 5"), 0);
}

TEST_F(VersionStrings, AVersionThatDoesNotParseFailsFirstOneFirst) {
  for (const auto& [a, b] : {std::pair{"bad", "1-5"}, std::pair{"1-5", "bad"}}) {
    try {
      handler.CompareVersion(a, b);
      ADD_FAILURE() << a << " " << b;
    } catch (const WebapiException& e) {
      EXPECT_STREQ(e.what(), "Input Version Incorrect");
    }
  }
  EXPECT_THAT(Lines(), fake::ElementsAre("build_num bad", "build_num 1-5", "build_num bad"));
}

class MeshVersions : public fake::ModuleTest {
 protected:
  std::vector<UpgradeHandler::UpdateNode> Nodes() {
    return UpgradeHandler::UpdateNode::ToUpdateNodes(platform.node_infos.nodes,
                                                     platform.access_infos.nodes);
  }
};

TEST_F(MeshVersions, FewerThanTwoNodesAreEqual) {
  EXPECT_TRUE(handler.IsAllMeshVersionEqual({}));
  platform.AddNode(0, "m", 1);
  EXPECT_TRUE(handler.IsAllMeshVersionEqual(Nodes()));
}

TEST_F(MeshVersions, EqualNodesAreEqual) {
  platform.AddNode(0, "m", 5, 1);
  platform.AddNode(1, "n", 5, 1);
  EXPECT_TRUE(handler.IsAllMeshVersionEqual(Nodes()));
  EXPECT_THAT(Logs(), fake::IsEmpty());
}

TEST_F(MeshVersions, TheFirstDifferentNodeIsLogged) {
  platform.AddNode(0, "m", 5, 1);
  platform.AddNode(1, "n", 5, 2);
  platform.AddNode(2, "n", 6, 1);
  EXPECT_FALSE(handler.IsAllMeshVersionEqual(Nodes()));
  EXPECT_THAT(Logs(),
              fake::ElementsAre("3 Found version not equal: [version: 5-2] vs [version 5-1]"));
}

}  // namespace
}  // namespace KALO::MESH::Webapi
