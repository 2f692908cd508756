#include "programs/kalomeshupgrade/wanted_patches.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

#include "host/core/spawn.h"
#include "platform/core/key_value.h"
#include "platform/paths.h"

namespace kalo::equal {
namespace {

namespace fs = std::filesystem;

void Record(const std::string& text) {
  fs::remove(KALO::paths::kPatchInformation);
  std::ofstream(KALO::paths::kPatchInformation) << text;
}

std::string Text(const std::vector<ModelGroup>& groups) {
  std::string text;
  for (const ModelGroup& group : groups) {
    text += group.unique + ":";
    for (const int id : group.ids) text += " " + std::to_string(id);
    text += "; ";
  }
  return text;
}

TEST(ModelGroups, AreReadFromTheirStoredForm) {
  EXPECT_EQ(Text(ParseGroups("kalo_m1  0 3; kalo_m2  5;")), "kalo_m1: 0 3; kalo_m2: 5; ");
  EXPECT_EQ(Text(ParseGroups("kalo_m1  0 0 3 0;")), "kalo_m1: 0 3; ") << "each node once";
  EXPECT_EQ(Text(ParseGroups("")), "");
  EXPECT_EQ(Text(ParseGroups(";; x;y z 1;")), "x:; y:; ") << "numbers end at the first other word";
}

TEST(ModelGroups, CountFromTheirClosingSemicolonOn) {
  EXPECT_EQ(Text(ParseGroups("kalo_m1  1; kalo_m2  2")), "kalo_m1: 1; ");
  EXPECT_EQ(Text(ParseGroups("kalo_m1  1")), "");
}

TEST(ModelGroups, OfSeveralThatClaimTheCapTheLastCounts) {
  EXPECT_EQ(Text(InOrder(ParseGroups("kalo_m1  0 2; kalo_m2  1; kalo_m3; kalo_m4  0 3;"))),
            "kalo_m2: 1; kalo_m4: 0 3; ");
}

KALO::MESH::SDK::Upgrade::UpdateNode Running(std::int32_t build, std::int32_t nano) {
  KALO::MESH::SDK::Client::NodeInfo info;
  info.build_num = build;
  info.nano_num = nano;
  return KALO::MESH::SDK::Upgrade::UpdateNode::ToUpdateNodes({{0, info}}, {{0, {}}}).at(0);
}

// The record of an ordinary check has the same keys.
TEST(WantedPatches, MustNotLeadPastTheHighestVersionInTheMesh) {
  const auto nodes = {Running(76000, 0), Running(76010, 2)};
  EXPECT_NO_THROW(CheckTargets({{"VXM 1.4.0-76010", "", "", {}}}, nodes));
  EXPECT_NO_THROW(CheckTargets({{"VXM 1.4.0-76010 Update 2", "", "", {}}}, nodes));
  for (const char* version : {"VXM 1.4.0-76010 Update 3", "VXM 1.4.0-76020", "nonsense"}) {
    EXPECT_THROW(CheckTargets({{"VXM 1.4.0-76010", "", "", {}}, {version, "", "", {}}}, nodes),
                 EqualUpdateError)
        << version;
  }
  EXPECT_THROW(CheckTargets({{"VXM 1.4.0-76010", "", "", {}}}, {}), EqualUpdateError);
}

TEST(WantedPatches, AreTheFullOneAndTheSmallOneOnTopOfIt) {
  Record(
      "avaliable_full=true\npatch_full=VXM 1.4.0-76010\nuniques_full=kalo_m1  0 2; kalo_m2  3;\n"
      "avaliable_nano=true\npatch_nano=VXM 1.4.0-76010 Update 2\nuniques_nano=kalo_m2  1 3;\n");
  const auto patches = ReadWantedPatches();
  ASSERT_EQ(patches.size(), 2U);
  EXPECT_EQ(patches[0].version, "VXM 1.4.0-76010");
  EXPECT_EQ(patches[0].base, "");
  EXPECT_EQ(patches[0].store, "/volume1/@mesh_full");
  EXPECT_EQ(Text(patches[0].groups), "kalo_m2: 3; kalo_m1: 0 2; ") << "the CAP's group last";
  EXPECT_EQ(patches[1].version, "VXM 1.4.0-76010 Update 2");
  EXPECT_EQ(patches[1].base, "76010");
  EXPECT_EQ(patches[1].store, "/volume1/@mesh_nano");
}

TEST(WantedPatches, ASmallUpdateAloneHasNoBase) {
  Record(
      "avaliable_full=false\navaliable_nano=true\npatch_nano=VXM 1.4.0-76010 Update 2\n"
      "uniques_nano=kalo_m2  1;\n");
  const auto patches = ReadWantedPatches();
  ASSERT_EQ(patches.size(), 1U);
  EXPECT_EQ(patches[0].base, "");
}

TEST(WantedPatches, WithoutARecordNothingIsWanted) {
  fs::remove(KALO::paths::kPatchInformation);
  EXPECT_TRUE(ReadWantedPatches().empty());
  Record("avaliable_full=yes\npatch_full=VXM 1.4.0-76010\nuniques_full=kalo_m1  0;\n");
  EXPECT_TRUE(ReadWantedPatches().empty());
}

int RunProgram(const std::vector<std::string>& words) {
  std::vector<std::string> argv = {KALO_MESH_UPGRADE};
  argv.insert(argv.end(), words.begin(), words.end());
  return WaitForExit(Spawn(argv));
}

TEST(EqualUpdateProgram, TakesItsOneWord) {
  EXPECT_EQ(RunProgram({}), 2);
  EXPECT_EQ(RunProgram({"--other"}), 2);
  EXPECT_EQ(RunProgram({"--updatecaptoequal", "more"}), 2);
  EXPECT_EQ(RunProgram({"--help"}), 0);
}

TEST(EqualUpdateProgram, WithoutARecordItTouchesNothing) {
  fs::remove(KALO::paths::kPatchInformation);
  EXPECT_EQ(RunProgram({"--updatecaptoequal"}), 1);
  EXPECT_FALSE(fs::exists(KALO::paths::kUpgradeProgress));
  EXPECT_FALSE(fs::exists(KALO::paths::kEqualUpdatePid)) << "its file goes with it";
}

TEST(EqualUpdateProgram, WithoutAMeshServiceItSaysThatItFailed) {
  Record("avaliable_full=true\npatch_full=VXM 1.4.0-76010\nuniques_full=kalo_m1  0;\n");
  EXPECT_EQ(RunProgram({"--updatecaptoequal"}), 1);
  EXPECT_EQ(KLIBCFileCheckKeyValue(KALO::paths::kUpgradeProgress, "step", "failed", 0), 1);
  EXPECT_EQ(KLIBCFileCheckKeyValue(KALO::paths::kUpgradeProgress, "percent", "0", 0), 1);
}

}  // namespace
}  // namespace kalo::equal
