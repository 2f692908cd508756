// What the new firmware's own updater says before it is installed.

#include <gtest/gtest.h>

#include <string>

#include "tests/journeys/support/mesh_box.h"

namespace kalo::journeys {
namespace {

class PrecheckJourney : public testing::Test {
 protected:
  PrecheckJourney() : mesh_(testing::UnitTest::GetInstance()->current_test_info()->name()) {}

  // Says how the sample updater behaves, one "word=value" a line.
  void Set(const std::string& settings) const {
    Shell("printf '" + settings + "\\n' >/etc/kalo/sample-updater");
  }
  std::string Shell(const std::string& script) const {
    return mesh_.Exec(0, {"sh", "-c", script}).out;
  }
  [[nodiscard]] Answer Ask(const std::string& language = "enu") const {
    return mesh_.Cli({"precheck", "--lang", language});
  }
  void ExpectNothingLeft() const {
    EXPECT_EQ(Shell("ls -d /tmp/patchtmp 2>/dev/null; flock -n /tmp/lock/mesh_precheck true || "
                    "echo locked"),
              "");
  }

  MeshBox mesh_;
};

TEST_F(PrecheckJourney, TheUpdaterShowsItsLicenceAndTellsItsFindings) {
  const Answer none = Ask();
  EXPECT_EQ(none.status, 0) << none.text;
  EXPECT_FALSE(none.data["eulacheck"].asBool()) << "nothing stands ready yet";
  mesh_.UploadNext();

  for (const auto& [language, begin] :
       {std::pair{"enu", "SAMPLE LICENCE AGREEMENT\n"}, std::pair{"ger", "MUSTER-LIZENZVER"},
        std::pair{"fre", "EXEMPLE DE CONTRAT"}, std::pair{"../", "SAMPLE LICENCE"}}) {
    const Answer answer = Ask(language);
    EXPECT_EQ(answer.status, 0) << answer.text;
    EXPECT_TRUE(answer.data["eulacheck"].asBool()) << answer.text;
    EXPECT_TRUE(answer.data["eulacheck_content"].asString().starts_with(begin)) << answer.text;
    EXPECT_FALSE(answer.data["precheck"].asBool());
  }

  Set("licence=no\\nfinding=memory");
  const Answer found = Ask();
  EXPECT_EQ(found.status, 1) << "it may not go on";
  EXPECT_FALSE(found.data["eulacheck"].asBool());
  EXPECT_TRUE(found.data["precheck"].asBool());
  EXPECT_FALSE(found.data["precheck_info"]["can_continue"].asBool());
  EXPECT_EQ(found.data["precheck_info"]["leading_note"], "Before the update");
  EXPECT_TRUE(found.data["precheck_info"]["message"].asString().starts_with("not enough memory"));
  Set("finding=memory\\ncan_continue=yes");
  EXPECT_TRUE(Ask("ger").data["precheck_info"]["can_continue"].asBool());
  EXPECT_EQ(Ask("ger").data["precheck_info"]["leading_note"], "Vor dem Update");
  Set("");
  EXPECT_FALSE(Ask().data["precheck"].asBool()) << "only its own findings count";
  ExpectNothingLeft();
}

TEST_F(PrecheckJourney, ABrokenUpdaterIsNoBrokenAnswer) {
  mesh_.UploadNext();
  for (const char* act : {"error", "flood", "half-text"}) {
    Set(std::string("act=") + act);
    const Answer answer = Ask();
    EXPECT_EQ(answer.status, 0) << act << answer.text;
    EXPECT_FALSE(answer.data["eulacheck"].asBool()) << act;
    EXPECT_FALSE(answer.data["precheck"].asBool()) << act;
  }
  EXPECT_TRUE(mesh_.LogHas("Failed to check eula before upgrade, err = 2"));
  EXPECT_TRUE(mesh_.LogHas("Failed to execute updater with KLIBCPopen")) << "it said too much";
  EXPECT_TRUE(mesh_.LogHas("Failed to get EULA content, command returned: 1"));
  Set("act=silent");
  EXPECT_FALSE(Ask().data["precheck"].asBool()) << "found something and did not say what";
  Set("finding=memory\\nact=half-report");
  EXPECT_EQ(Ask().Code(), 100);
  EXPECT_TRUE(mesh_.LogHas("RunUpgradePrecheck exception: Failed to get leading note"));
  ExpectNothingLeft();
}

TEST_F(PrecheckJourney, WhatOthersPutInItsPlaceIsNotUsed) {
  mesh_.UploadNext();
  EXPECT_EQ(Shell("stat -c '%a %u' /tmp /tmp/lock /run/lock"), "755 0\n755 0\n755 0\n");
  Set("licence=no");
  Shell(
      "chmod 1777 /tmp /tmp/lock; mkdir -m 777 /tmp/patchtmp; "
      "printf '#!/bin/sh\ntouch /tmp/evil\nexit 1\n' >/tmp/patchtmp/updater; "
      "chmod 777 /tmp/patchtmp/updater; chown -R 1234 /tmp/patchtmp 2>/dev/null");
  const Answer answer = Ask();
  EXPECT_EQ(answer.status, 0) << answer.text;
  EXPECT_FALSE(answer.data["eulacheck"].asBool()) << "the patch's own updater was asked";
  EXPECT_EQ(Shell("ls /tmp/evil 2>/dev/null"), "");
  ExpectNothingLeft();
}

TEST_F(PrecheckJourney, AnUpdaterThatCannotBeConfinedIsNotAPassedPrecheck) {
  mesh_.UploadNext();
  Shell("rm -rf /run/kalo/confine; touch /run/kalo/confine");
  const Answer answer = Ask("ger");
  EXPECT_EQ(answer.status, 1) << answer.text;
  EXPECT_FALSE(answer.data["eulacheck"].asBool());
  EXPECT_TRUE(answer.data["precheck"].asBool());
  EXPECT_FALSE(answer.data["precheck_info"]["can_continue"].asBool());
  EXPECT_EQ(answer.data["precheck_info"]["leading_note"],
            "Die neue Firmware konnte nicht geprüft werden");
  EXPECT_NE(answer.data["precheck_info"]["message"].asString(), "");
  EXPECT_TRUE(mesh_.LogHas("did not run the updater of the patch"));
  Shell("rm /run/kalo/confine");
  EXPECT_EQ(Ask().status, 0) << "only this run's findings count";
}

TEST_F(PrecheckJourney, TwoAtATimeAreOneTooMany) {
  mesh_.UploadNext();
  const std::string held = Shell(
      "flock -n /tmp/lock/mesh_precheck /usr/kalo/bin/kalo-mesh --local precheck --json 2>&1");
  EXPECT_NE(held.find("\"code\":100"), std::string::npos) << held;
  EXPECT_EQ(Ask().status, 0);
}

TEST_F(PrecheckJourney, AnUnverifiedPatchIsNeverUnpacked) {
  mesh_.UploadNext();
  Shell("printf x | dd of=/volume1/@node_patch/patch.pat bs=1 seek=50000 conv=notrunc 2>/dev/null");
  EXPECT_EQ(Ask().Code(), 100);
  EXPECT_TRUE(mesh_.LogHas("which is no valid patch"));
  EXPECT_EQ(Shell("ls /volume1/@node_patch/patch.pat 2>/dev/null"), "") << "it is gone";
  ExpectNothingLeft();
  EXPECT_EQ(Ask().status, 0) << "and then there is nothing to check";
}

TEST_F(PrecheckJourney, AnUpgradePassesItOnItsWay) {
  mesh_.Publish({"kalo_m1-76010", "kalo_m2-76010"});
  Set("finding=memory");
  const Answer stopped = mesh_.Cli({"upgrade", "--yes", "--accept-licence"});
  EXPECT_EQ(stopped.status, 1) << stopped.text;
  EXPECT_NE(stopped.text.find("not enough memory"), std::string::npos) << stopped.text;
  Set("");
  EXPECT_EQ(mesh_.Cli({"upgrade", "--yes"}).status, 2) << "nobody can be asked to agree";
  for (int node = 0; node < 4; ++node) EXPECT_EQ(mesh_.RunningVersion(node), kFirst) << node;
}

}  // namespace
}  // namespace kalo::journeys
