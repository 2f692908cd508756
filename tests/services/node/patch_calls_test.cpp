#include "services/node/patch_calls.h"

#include <gmock/gmock.h>

#include "host/core/file_lock.h"
#include "platform/paths.h"
#include "services/node/error_codes.h"
#include "services/node/installer.h"
#include "services/node/node_info.h"
#include "services/node/slots.h"
#include "services/node/stage.h"
#include "tests/services/node/support.h"

namespace kalo::node {
namespace {
namespace fs = std::filesystem;

class PatchCalls : public NodeTest {
 protected:
  KALO::APIResponse Upload(const std::string& path) {
    Json::Value parameters(Json::objectValue);
    parameters["patch_file"] = "next.pat";
    if (!path.empty()) parameters["patch_file_tmp"] = path;
    return Call(UploadPatch, parameters);
  }
  static KALO::APIResponse Call(void (*call)(const KALO::APIRequest&, KALO::APIResponse&),
                                const Json::Value& parameters = Json::objectValue) {
    const KALO::APIRequest request(parameters);
    KALO::APIResponse response;
    call(request, response);
    return response;
  }
};

TEST_F(PatchCalls, AnUploadIsVerifiedAndStaged) {
  const std::string path = MakePatch(kNext);
  const KALO::APIResponse response = Upload(path);
  ASSERT_TRUE(response.IsSuccess()) << response.ErrorCode();
  EXPECT_EQ(response.Data()["version"], kNext);
  EXPECT_EQ(response.Data()["unique"], kModel);
  EXPECT_EQ(response.Data()["build"], 76010);
  EXPECT_EQ(response.Data()["nano"], 0);
  ASSERT_TRUE(ReadStaged().has_value());
  EXPECT_EQ(ReadStaged()->description.version, kNext);
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(fs::status(ReadStaged()->full).permissions(), fs::perms(0600));
}

TEST_F(PatchCalls, EveryRefusalHasItsNumberAndStagesNothing) {
  EXPECT_EQ(Upload("").ErrorCode(), error::kNoFile);
  EXPECT_EQ(Upload("/nowhere").ErrorCode(), error::kNotVerified);
  EXPECT_EQ(Upload(MakePatch(kNext, "kalo_m2")).ErrorCode(), error::kOtherModel);
  EXPECT_EQ(Upload(MakePatch(kRunning, kModel, 76000)).ErrorCode(), error::kNotNewer);
  const std::string path = MakePatch(kNext);
  std::string bytes = ReadText(path);
  bytes.at(bytes.size() / 2) ^= 1;
  WriteText(path, bytes);
  EXPECT_EQ(Upload(path).ErrorCode(), error::kNotVerified);
  EXPECT_FALSE(ReadStaged().has_value());
}

TEST_F(PatchCalls, ANewUploadReplacesTheStagedOne) {
  ASSERT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  ASSERT_TRUE(Upload(MakePatch("VXM 1.4.1-76020", kModel, 76020)).IsSuccess());
  EXPECT_EQ(ReadStaged()->description.build, 76020);
}

TEST_F(PatchCalls, ASmallUpdateJoinsTheFullOneThatItAppliesOn) {
  ASSERT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  ASSERT_TRUE(Upload(MakeSmallPatch("VXM 1.4.0-76010 Update 0", 76010, 0)).IsSuccess());
  ASSERT_TRUE(ReadStaged().has_value());
  EXPECT_FALSE(ReadStaged()->full.empty());
  EXPECT_FALSE(ReadStaged()->small.empty());
  EXPECT_EQ(ReadStaged()->description.version, "VXM 1.4.0-76010 Update 0");
  EXPECT_EQ(NodeInfo()["staged_version"], "VXM 1.4.0-76010 Update 0");
  ASSERT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  EXPECT_TRUE(ReadStaged()->small.empty()) << "a full one takes the place of all";
}

TEST_F(PatchCalls, ASmallUpdateOfWhatRunsStandsAlone) {
  ASSERT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  ASSERT_TRUE(Upload(MakeSmallPatch("VXM 1.4.0-76000 Update 2", 76000, 2)).IsSuccess());
  EXPECT_TRUE(ReadStaged()->full.empty());
  EXPECT_EQ(ReadStaged()->description.nano, 2);
  EXPECT_EQ(Upload(MakeSmallPatch("VXM 1.4.0-76000 Update 0", 76000, 0)).ErrorCode(),
            error::kNotNewer);
}

TEST_F(PatchCalls, ASmallUpdateWithoutItsBaseIsRefused) {
  EXPECT_EQ(Upload(MakeSmallPatch("VXM 1.4.0-76010 Update 1", 76010, 1)).ErrorCode(),
            error::kOtherBase);
  ASSERT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  EXPECT_EQ(Upload(MakeSmallPatch("VXM 1.4.0-76020 Update 1", 76020, 1)).ErrorCode(),
            error::kOtherBase);
  EXPECT_EQ(ReadStaged()->description.version, kNext);
}

TEST_F(PatchCalls, AnInstallationKeepsThemOut) {
  const std::string path = MakePatch(kNext);
  const auto installer = FileLock::TryTake(KALO::paths::kInstallLock);
  ASSERT_TRUE(WriteInstallReport({"updating_programs", 30, kNext, 0, "", ""}));
  EXPECT_EQ(Upload(path).ErrorCode(), error::kInstalling);
  EXPECT_EQ(Call(CleanPatch).ErrorCode(), error::kInstalling);
  EXPECT_TRUE(fs::exists(path));
}

TEST_F(PatchCalls, WhatElseHoldsTheLockIsNoInstallation) {
  const std::string path = MakePatch(kNext);
  const auto other = FileLock::TryTake(KALO::paths::kInstallLock);
  for (const char* step : {"none", "failed", "finish"}) {
    ASSERT_TRUE(WriteInstallReport({step, 0, "", 0, "", ""}));
    EXPECT_EQ(Upload(path).ErrorCode(), error::kBusy) << step;
    EXPECT_EQ(Call(CleanPatch).ErrorCode(), error::kBusy) << step;
  }
}

TEST_F(PatchCalls, AnInstallerThatDiedIsNotTakenForWorking) {
  ASSERT_TRUE(WriteInstallReport({"updating_programs", 30, kNext, 0, "", ""}));
  ASSERT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  EXPECT_EQ(ReadInstallReport().step, "failed");
  EXPECT_EQ(ReadInstallReport().err_desc, "the installation broke off");
}

// The mesh service asks each second and would wait for minutes for a sign of it.
TEST_F(PatchCalls, NobodyIsToldOfAnInstallationWhoseInstallerDied) {
  for (Json::Value (*ask)() :
       {+[] { return NodeInfo()["install"]; }, +[] { return InstallProgress(); }}) {
    ASSERT_TRUE(WriteInstallReport({"updating_programs", 30, kNext, 0, "", ""}));
    {
      const auto installer = FileLock::TryTake(KALO::paths::kInstallLock);
      EXPECT_EQ(ask()["step"], "updating_programs");
    }
    const Json::Value report = ask();
    EXPECT_EQ(report["step"], "failed");
    EXPECT_EQ(report["errno"], error::kGeneral);
    EXPECT_EQ(report["err_desc"], "the installation broke off");
    EXPECT_EQ(ReadInstallReport().step, "failed");
  }
}

TEST_F(PatchCalls, ANodeThatIsAboutToRestartIsTold) {
  ASSERT_TRUE(WriteInstallReport({"reboot", kRestartAsked, kNext, 0, "", ""}));
  EXPECT_EQ(InstallProgress()["step"], "reboot");
  ASSERT_TRUE(WriteInstallReport({"reboot", kRestartAsked - 1, kNext, 0, "", ""}));
  EXPECT_EQ(InstallProgress()["step"], "failed") << "it died before it asked for the restart";
}

TEST_F(PatchCalls, APatchWhoseLocatorCannotBeWrittenIsNotStaged) {
  WriteText("/etc/kalo/node.conf", "id=\"0\"\nname=\"Hall\"\n");
  fs::create_directory(KALO::paths::kFullPatchLocator);
  EXPECT_EQ(Upload(MakePatch(kNext)).ErrorCode(), error::kCannotStage);
  fs::remove(KALO::paths::kFullPatchLocator);
  EXPECT_FALSE(ReadStaged().has_value());
}

TEST_F(PatchCalls, CleanDropsTheStagedPatchAndTheLocatorAndNothingElse) {
  ASSERT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  WriteText(KALO::paths::kFullPatchLocator, "{}");
  WriteText(KALO::paths::kUpgradeProgress, "step=\"none\"\n");
  WriteText("/volume1/@mesh_full/x", "x");
  EXPECT_TRUE(Call(CleanPatch).IsSuccess());
  EXPECT_FALSE(ReadStaged().has_value());
  EXPECT_FALSE(fs::exists(KALO::paths::kFullPatchLocator));
  EXPECT_TRUE(fs::exists(KALO::paths::kUpgradeProgress));
  EXPECT_TRUE(fs::exists("/volume1/@mesh_full/x"));
  EXPECT_TRUE(Call(CleanPatch).IsSuccess());
}

// A restart for another reason would boot it, and nobody wants it any more.
TEST_F(PatchCalls, CleanCallsOffWhatWaitsForItsRestart) {
  ASSERT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  ASSERT_TRUE(Installer().Run());
  ASSERT_EQ(slots::GetUse(), slots::Use::kAwaitsRestart);
  EXPECT_TRUE(Call(CleanPatch).IsSuccess());
  EXPECT_EQ(slots::GetUse(), slots::Use::kFree);
  EXPECT_EQ(slots::ActiveSlot().filename(), "a");
}

TEST_F(PatchCalls, OnTheMainRouterAFullPatchIsWhereThePrecheckLooks) {
  WriteText("/etc/kalo/node.conf", "id=\"0\"\nname=\"Hall\"\n");
  ASSERT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  EXPECT_EQ(ReadText(KALO::paths::kFullPatchLocator),
            "{\"patchPath\":\"" + ReadStaged()->full + "\"}\n");
  ASSERT_TRUE(Upload(MakeSmallPatch("VXM 1.4.0-76010 Update 2", 76010, 2)).IsSuccess());
  EXPECT_TRUE(fs::exists(KALO::paths::kFullPatchLocator)) << "it stands below the small update";
  RemoveStaged();
  EXPECT_FALSE(fs::exists(KALO::paths::kFullPatchLocator)) << "it goes with the patch";
  ASSERT_TRUE(Upload(MakeSmallPatch("VXM 1.4.0-76000 Update 2", 76000, 2)).IsSuccess());
  EXPECT_FALSE(fs::exists(KALO::paths::kFullPatchLocator)) << "a small update has no updater";
}

TEST_F(PatchCalls, OnOtherNodesNobodyLooksForOne) {
  ASSERT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  EXPECT_FALSE(fs::exists(KALO::paths::kFullPatchLocator));
}

TEST_F(PatchCalls, NeverTakeThePatchLock) {
  const auto main_router = FileLock::TryTake(KALO::paths::kPatchLock);
  ASSERT_TRUE(main_router.has_value());
  EXPECT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  EXPECT_TRUE(Call(CleanPatch).IsSuccess());
}

TEST_F(PatchCalls, StartNeedsSomethingStaged) {
  EXPECT_EQ(Call(StartInstall).ErrorCode(), error::kNothingStaged);
}

TEST_F(PatchCalls, StartWithoutAnInstallerIsAGeneralFailure) {
  ASSERT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  EXPECT_EQ(Call(StartInstall).ErrorCode(), error::kGeneral);
}

TEST_F(PatchCalls, StartTellsThatOneRuns) {
  ASSERT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  fs::create_symlink(KALO_INSTALL, KALO::paths::kInstallerProgram);
  const auto installer = FileLock::TryTake(KALO::paths::kInstallLock);
  EXPECT_EQ(Call(StartInstall).ErrorCode(), error::kBusy);
  ASSERT_TRUE(WriteInstallReport({"updating_programs", 30, kNext, 0, "", ""}));
  EXPECT_EQ(Call(StartInstall).ErrorCode(), error::kInstalling);
}

// The slot that does not run is the way back.
TEST_F(PatchCalls, NothingIsInstalledBeforeTheLastOneIsConfirmed) {
  fs::create_symlink(KALO_INSTALL, KALO::paths::kInstallerProgram);
  ASSERT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  ASSERT_TRUE(Installer().Run());
  Boot();
  EXPECT_EQ(Call(StartInstall).ErrorCode(), error::kBusy);
  EXPECT_TRUE(fs::exists("/volume1/@slots/a/VERSION"));
}

TEST_F(PatchCalls, InfoTellsWhoTheNodeIsAndWhatIsStaged) {
  ASSERT_TRUE(Upload(MakePatch(kNext)).IsSuccess());
  const Json::Value info = NodeInfo();
  EXPECT_EQ(info["node_id"], 3);
  EXPECT_EQ(info["name"], "Attic");
  EXPECT_EQ(info["unique"], kModel);
  EXPECT_EQ(info["version"], kRunning);
  EXPECT_EQ(info["build"], 76000);
  EXPECT_EQ(info["boot_id"], "0123456789abcdef0123456789abcdef");
  EXPECT_EQ(info["staged_version"], kNext);
  EXPECT_EQ(info["install"]["step"], "none");
}

TEST_F(PatchCalls, ANodeThatDoesNotKnowItselfSaysSo) {
  for (const char* path : {"/etc/kalo/node.conf", "/run/boot_id", "/usr/kalo/VERSION"}) {
    SetUp();
    fs::remove(path);
    EXPECT_THROW((void)NodeInfo(), std::runtime_error) << path;
  }
}

}  // namespace
}  // namespace kalo::node
