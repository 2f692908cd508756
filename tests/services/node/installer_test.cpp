#include "services/node/installer.h"

#include <sys/mount.h>

#include <gmock/gmock.h>

#include <cstdlib>

#include "platform/paths.h"
#include "services/node/boot_result.h"
#include "services/node/error_codes.h"
#include "services/node/slots.h"
#include "tests/services/node/support.h"

namespace kalo::node {
namespace {
namespace fs = std::filesystem;

const fs::path kFolder = KALO::paths::kSlots;

class Installing : public NodeTest {
 protected:
  void StageNext(const std::string& version = kNext) {
    Stage(MakePatch(version), {kModel, version, 76010, 0}, "");
  }
  static void ExpectOldVersionStays() {
    EXPECT_EQ(slots::ActiveSlot(), kFolder / "a");
    EXPECT_EQ(slots::ReadState().trial, slots::Trial::kNone);
  }
};

TEST_F(Installing, WritesTheOtherSlotAndMakesItTheNextBoots) {
  StageNext();
  ASSERT_TRUE(Installer().Run());
  EXPECT_EQ(ReadInstallReport().step, "reboot");
  EXPECT_EQ(ReadInstallReport().version, kNext);
  EXPECT_LT(ReadInstallReport().percent, 100);
  EXPECT_EQ(slots::ActiveSlot(), kFolder / "b");
  EXPECT_EQ(fs::file_size(kFolder / "b/share/filler"), 1U << 20U);
  EXPECT_EQ(fs::status(kFolder / "b/sbin/webapid").permissions(), fs::perms(0755));
  EXPECT_THAT(ReadText(kFolder / "b/VERSION"), testing::HasSubstr(kNext));
}

TEST_F(Installing, AHealthyBootFinishesItAndDropsThePatch) {
  StageNext();
  ASSERT_TRUE(Installer().Run());
  Boot();
  EXPECT_EQ(ReadInstallReport().step, "none");
  ConfirmBoot();
  EXPECT_EQ(ReadInstallReport().step, "finish");
  EXPECT_EQ(ReadInstallReport().percent, 100);
  EXPECT_FALSE(ReadStaged().has_value());
  Boot();
  ConfirmBoot();
  EXPECT_EQ(ReadInstallReport().step, "none");
  EXPECT_EQ(slots::ActiveSlot(), kFolder / "b");
}

TEST_F(Installing, ALateConfirmationLeavesWhatWasHandedInSince) {
  constexpr const char* kLater = "VXM 1.4.0-76010 Update 3";
  StageNext();
  ASSERT_TRUE(Installer().Run());
  Boot();
  Stage(MakeSmallPatch(kLater, 76010, 3), {kModel, kLater, 76010, 3}, "76010");
  ConfirmBoot();
  EXPECT_EQ(slots::ReadState().trial, slots::Trial::kNone);
  ASSERT_TRUE(ReadStaged().has_value());
  EXPECT_EQ(ReadStaged()->description.version, kLater);
}

TEST_F(Installing, ABootThatIsNotHealthyGoesBackAndSaysSo) {
  StageNext();
  ASSERT_TRUE(Installer().Run());
  Boot();
  EXPECT_TRUE(GiveUpBoot());
  Boot();
  ConfirmBoot();
  EXPECT_EQ(slots::ActiveSlot(), kFolder / "a");
  EXPECT_EQ(ReadInstallReport().step, "failed");
  EXPECT_EQ(ReadInstallReport().err_msg, "the new version did not become healthy");
  EXPECT_TRUE(ReadStaged().has_value());
  EXPECT_FALSE(GiveUpBoot());
}

TEST_F(Installing, ASmallUpdateGoesOnTopOfTheFullOneInOneInstallation) {
  StageNext();
  const char* version = "VXM 1.4.0-76010 Update 2";
  Stage(MakeSmallPatch(version, 76010, 2), {kModel, version, 76010, 2}, "76010");
  ASSERT_TRUE(Installer().Run());
  EXPECT_EQ(ReadInstallReport().version, version);
  EXPECT_EQ(ReadText(kFolder / "b/share/filler"), "small");
  EXPECT_EQ(ReadText(kFolder / "b/share/new/file"), "new");
  EXPECT_TRUE(fs::exists(kFolder / "b/sbin/webapid"));
  EXPECT_THAT(ReadText(kFolder / "b/VERSION"), testing::HasSubstr(version));
  EXPECT_FALSE(fs::exists(kFolder / "b.small"));
  Boot();
  ConfirmBoot();
  EXPECT_FALSE(ReadStaged().has_value());
}

TEST_F(Installing, ASmallUpdateAloneGoesOntoACopyOfWhatRuns) {
  WriteText(kFolder / "a/sbin/webapid", "#!/bin/sh\n");
  fs::permissions(kFolder / "a/sbin/webapid", fs::perms(0755));
  WriteText(kFolder / "a/share/kept", "kept");
  const char* version = "VXM 1.4.0-76000 Update 2";
  Stage(MakeSmallPatch(version, 76000, 2), {kModel, version, 76000, 2}, "");
  ASSERT_TRUE(Installer().Run()) << ReadInstallReport().err_msg;
  EXPECT_EQ(ReadText(kFolder / "b/share/kept"), "kept");
  EXPECT_EQ(ReadText(kFolder / "b/share/filler"), "small");
  EXPECT_EQ(fs::status(kFolder / "b/sbin/webapid").permissions(), fs::perms(0755));
  EXPECT_THAT(ReadText(kFolder / "b/VERSION"), testing::HasSubstr(version));
  EXPECT_THAT(ReadText(kFolder / "a/VERSION"), testing::HasSubstr(kRunning));
}

TEST_F(Installing, AChangedSmallUpdateFailsTheWholeInstallation) {
  StageNext();
  const char* version = "VXM 1.4.0-76010 Update 2";
  Stage(MakeSmallPatch(version, 76010, 2), {kModel, version, 76010, 2}, "76010");
  const fs::path staged = ReadStaged()->small;
  std::string bytes = ReadText(staged);
  bytes.at(bytes.size() - 2000) ^= 1;
  WriteText(staged, bytes);
  EXPECT_FALSE(Installer().Run());
  EXPECT_EQ(ReadInstallReport().error_number, error::kNotVerified);
  ExpectOldVersionStays();
}

// Whoever follows it would take an installer that is gone for dead.
TEST_F(Installing, ThatTheRestartIsAskedForIsTold) {
  StageNext();
  WriteText(KALO::paths::kRebootProgram,
            "#!/bin/sh\nfor i in $(seq 500); do\n"
            "  grep -q 'percent=\"96\"' /run/kalo/install && exit 0; sleep 0.01\ndone\nexit 1\n");
  fs::permissions(KALO::paths::kRebootProgram, fs::perms(0755));
  EXPECT_EQ(std::system(KALO_INSTALL " start --foreground"), 0);
  EXPECT_EQ(ReadInstallReport().step, "reboot");
  EXPECT_EQ(ReadInstallReport().version, kNext);
}

// The restart may fail, or take a while: what runs must not be written over meanwhile.
TEST_F(Installing, AMissingRestartIsToldAndTriedAgainWithoutInstallingAgain) {
  constexpr const char* kInstall = KALO_INSTALL " start --foreground";
  StageNext();
  WriteText(KALO::paths::kRebootProgram, "#!/bin/sh\nexit 1\n");
  fs::permissions(KALO::paths::kRebootProgram, fs::perms(0755));
  WriteText(kFolder / "a/mark", "runs");
  EXPECT_NE(std::system(kInstall), 0);
  EXPECT_EQ(ReadInstallReport().step, "failed");
  EXPECT_EQ(ReadInstallReport().version, kNext);
  EXPECT_EQ(ReadInstallReport().err_desc, "the node cannot be restarted");
  WriteText(KALO::paths::kRebootProgram, "#!/bin/sh\ntouch /tmp/restarted\n");
  EXPECT_EQ(std::system(kInstall), 0);
  EXPECT_TRUE(fs::exists("/tmp/restarted"));
  EXPECT_TRUE(fs::exists(kFolder / "a/mark"));
  EXPECT_EQ(slots::ActiveSlot(), kFolder / "b");
  constexpr const char* kLater = "VXM 1.4.0-76020";
  Stage(MakePatch(kLater, kModel, 76020), {kModel, kLater, 76020, 0}, "");
  EXPECT_EQ(std::system(kInstall), 0);
  EXPECT_THAT(ReadText(kFolder / "b/VERSION"), testing::HasSubstr(kLater))
      << "what was handed in since comes first";
  EXPECT_TRUE(fs::exists(kFolder / "a/mark"));
}

TEST_F(Installing, NothingStagedFails) {
  EXPECT_FALSE(Installer().Run());
  EXPECT_EQ(ReadInstallReport().step, "failed");
  EXPECT_EQ(ReadInstallReport().err_msg, "nothing is staged");
  ExpectOldVersionStays();
}

TEST_F(Installing, APatchThatWasChangedOnTheStageFails) {
  StageNext();
  const fs::path staged = ReadStaged()->full;
  std::string bytes = ReadText(staged);
  bytes.at(bytes.size() / 2) ^= 1;
  WriteText(staged, bytes);
  EXPECT_FALSE(Installer().Run());
  EXPECT_EQ(ReadInstallReport().step, "failed");
  EXPECT_EQ(ReadInstallReport().error_number, error::kNotVerified);
  ExpectOldVersionStays();
}

TEST_F(Installing, WithoutTheMakersKeyItFails) {
  StageNext();
  fs::remove(fs::path(KALO::paths::kPatchKeys) / "maker.pem");
  EXPECT_FALSE(Installer().Run());
  EXPECT_EQ(ReadInstallReport().error_number, error::kNotVerified);
  ExpectOldVersionStays();
}

TEST_F(Installing, AFullDiskFailsAndTheNextRunSucceeds) {
  StageNext();
  fs::create_directory(kFolder / "b");
  // The old slot and the state stay outside the small disk.
  ASSERT_EQ(mount("tmpfs", (kFolder / "b").c_str(), "tmpfs", 0, "size=512k"), 0);
  EXPECT_FALSE(Installer().Run());
  ASSERT_EQ(umount((kFolder / "b").c_str()), 0);
  EXPECT_EQ(ReadInstallReport().step, "failed");
  ExpectOldVersionStays();
  EXPECT_TRUE(Installer().Run());
  EXPECT_EQ(slots::ActiveSlot(), kFolder / "b");
}

TEST_F(Installing, WhatAnEarlierRunLeftIsNotKept) {
  WriteText(kFolder / "b/left/over", "x");
  StageNext();
  ASSERT_TRUE(Installer().Run());
  EXPECT_FALSE(fs::exists(kFolder / "b/left"));
}

}  // namespace
}  // namespace kalo::node
