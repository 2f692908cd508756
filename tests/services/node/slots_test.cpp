#include "services/node/slots.h"

#include <system_error>

#include "host/update/patch_format/description.h"
#include "platform/paths.h"
#include "tests/services/node/support.h"
#include "tests/support/no_descriptors.h"

namespace kalo::slots {
namespace {
namespace fs = std::filesystem;

const fs::path kFolder = KALO::paths::kSlots;

class Slots : public node::NodeTest {
 protected:
  void SetUp() override {
    NodeTest::SetUp();
    Fill("b");
  }
  static void Fill(const std::string& slot) {
    node::WriteText(kFolder / slot / "VERSION",
                    patch::WriteDescription({"kalo_m1", node::kNext, 76010, 0}));
  }
  static std::string Next() { return ChooseAtBoot().filename(); }
};

TEST_F(Slots, WithoutATrialTheLinkDecides) {
  EXPECT_EQ(Next(), "a");
  EXPECT_EQ(Next(), "a");
  EXPECT_EQ(ActiveSlot(), kFolder / "a");
  EXPECT_EQ(InactiveSlot(), kFolder / "b");
}

TEST_F(Slots, AConfirmedTrialStays) {
  ActivateForTrial(node::kNext);
  EXPECT_EQ(ReadState().trial, Trial::kArmed);
  EXPECT_EQ(Next(), "b");
  EXPECT_EQ(ReadState().trial, Trial::kBooted);
  EXPECT_EQ(ReadState().version, node::kNext);
  EndTrial();
  EXPECT_EQ(Next(), "b");
  EXPECT_EQ(Next(), "b");
  EXPECT_EQ(InactiveSlot(), kFolder / "a");
}

TEST_F(Slots, ATrialThatWasNotConfirmedIsTriedOnce) {
  ActivateForTrial(node::kNext);
  EXPECT_EQ(Next(), "b");
  EXPECT_EQ(Next(), "a");
  EXPECT_EQ(ReadState().trial, Trial::kFailed);
  EXPECT_EQ(ReadState().failure, "the new version did not come up");
  EXPECT_EQ(Next(), "a");
}

TEST_F(Slots, GivingUpGoesBackAtOnce) {
  ActivateForTrial(node::kNext);
  EXPECT_EQ(Next(), "b");
  EXPECT_TRUE(FallBack("not healthy"));
  EXPECT_EQ(ReadState().failure, "not healthy");
  EXPECT_EQ(Next(), "a");
  EXPECT_FALSE(FallBack("again"));
}

// Who took it for no trial would confirm nothing, and the next boot would go back.
TEST_F(Slots, AStateThatCannotBeReadNowIsNotNone) {
  ActivateForTrial(node::kNext);
  EXPECT_EQ(Next(), "b");
  {
    const test::NoDescriptors none;
    EXPECT_THROW(static_cast<void>(ReadState()), std::system_error);
    EXPECT_THROW(EndTrial(), std::system_error);
    EXPECT_EQ(Next(), "b") << "a node boots all the same";
  }
  EXPECT_EQ(ReadState().trial, Trial::kBooted);
}

TEST_F(Slots, BothAreNeededUntilATrialIsConfirmed) {
  EXPECT_EQ(GetUse(), Use::kFree);
  ActivateForTrial(node::kNext);
  EXPECT_EQ(GetUse(), Use::kAwaitsRestart) << "what runs is not what the link names";
  EXPECT_EQ(Next(), "b");
  EXPECT_EQ(GetUse(), Use::kAwaitsVerdict);
  EndTrial();
  EXPECT_EQ(GetUse(), Use::kFree);
}

TEST_F(Slots, WhatRunsIsNeededUntilTheRestartOfAFallBackIsJudged) {
  ActivateForTrial(node::kNext);
  EXPECT_EQ(Next(), "b");
  ASSERT_TRUE(FallBack("not healthy"));
  EXPECT_EQ(GetUse(), Use::kAwaitsVerdict) << "b runs, and the link names a";
  EXPECT_EQ(Next(), "a");
  EXPECT_EQ(GetUse(), Use::kAwaitsVerdict);
  EndTrial();
  EXPECT_EQ(GetUse(), Use::kFree);
}

TEST_F(Slots, WithoutAWayBackThereIsNothingToKeep) {
  ActivateForTrial(node::kNext);
  EXPECT_EQ(Next(), "b");
  fs::remove(kFolder / "a/VERSION");
  EXPECT_EQ(GetUse(), Use::kFree);
}

TEST_F(Slots, AnActivationThatIsCalledOffIsNotBooted) {
  ActivateForTrial(node::kNext);
  CallOff();
  EXPECT_EQ(GetUse(), Use::kFree);
  EXPECT_EQ(ActiveSlot(), kFolder / "a");
  EXPECT_EQ(Next(), "a");
  EXPECT_EQ(ReadState().trial, Trial::kNone);
}

TEST_F(Slots, AnActivationThatBrokeOffNeedsOnlyWhatRuns) {
  ActivateForTrial(node::kNext);
  fs::remove(kFolder / "current");
  fs::create_symlink("a", kFolder / "current");
  EXPECT_EQ(GetUse(), Use::kFree);
}

TEST_F(Slots, ThereIsNoGivingUpWithoutAFirmwareToGoBackTo) {
  ActivateForTrial(node::kNext);
  EXPECT_EQ(Next(), "b");
  fs::remove(kFolder / "a/VERSION");
  EXPECT_FALSE(FallBack("not healthy"));
  EXPECT_EQ(ActiveSlot(), kFolder / "b");
}

// The power may go between the writes of an activation: the state is written, the link is not.
TEST_F(Slots, AnInterruptedActivationBootsTheOldSlotAndSaysSo) {
  ActivateForTrial(node::kNext);
  fs::remove(kFolder / "current");
  fs::create_symlink("a", kFolder / "current");
  EXPECT_EQ(Next(), "a");
  EXPECT_EQ(ReadState().trial, Trial::kFailed);
  EXPECT_NE(ReadState().failure, "");
}

TEST_F(Slots, ALeftOverLinkOfAnInterruptedFlipIsNoHindrance) {
  fs::create_symlink("nowhere", kFolder / "current.next");
  ActivateForTrial(node::kNext);
  EXPECT_EQ(Next(), "b");
}

TEST_F(Slots, AMissingOrForeignLinkIsMadeAnew) {
  fs::remove(kFolder / "current");
  EXPECT_THROW(static_cast<void>(ActiveSlot()), std::runtime_error);
  EXPECT_EQ(Next(), "a");
  EXPECT_EQ(ActiveSlot(), kFolder / "a");
  fs::remove(kFolder / "current");
  fs::create_symlink("/etc", kFolder / "current");
  EXPECT_EQ(Next(), "a");
}

TEST_F(Slots, AnEmptySlotIsNeverBooted) {
  fs::remove(kFolder / "a/VERSION");
  EXPECT_EQ(Next(), "b");
  fs::remove(kFolder / "b/VERSION");
  EXPECT_THROW(static_cast<void>(ChooseAtBoot()), std::runtime_error);
}

TEST_F(Slots, AFailedTrialIsKeptWhenThePreviousSlotIsGone) {
  ActivateForTrial(node::kNext);
  EXPECT_EQ(Next(), "b");
  fs::remove_all(kFolder / "a");
  EXPECT_EQ(Next(), "b");
}

TEST_F(Slots, GarbageInTheStateIsNoTrial) {
  for (const char* text : {"", "trial=\"booted\"\n", "trial=\"booted\"\nprevious=\"../x\"\n",
                           "\x01\x02", "trial=\"what\"\nprevious=\"b\"\n"}) {
    node::WriteText(kFolder / "state", text);
    fs::permissions(kFolder / "state", fs::perms(0600));
    EXPECT_EQ(ReadState().trial, Trial::kNone) << text;
    EXPECT_EQ(Next(), "a") << text;
  }
}

}  // namespace
}  // namespace kalo::slots
