// A mesh whose nodes run different versions on its way to one.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/journeys/support/mesh_box.h"
#include "tests/support/wait.h"

namespace kalo::journeys {
namespace {

constexpr const char* kMiddle = "VXM 1.4.0-76010";
constexpr const char* kHigh = "VXM 1.4.0-76020";

// The nodes' first versions, as options of the box.
std::vector<std::string> Versions(const std::vector<std::string>& versions) {
  std::vector<std::string> options;
  for (std::size_t id = 0; id < versions.size(); ++id) {
    options.insert(options.end(), {"--node-version", std::to_string(id) + "=" + versions[id]});
  }
  return options;
}

class EqualJourney : public testing::Test {
 protected:
  explicit EqualJourney(const std::vector<std::string>& versions)
      : mesh_(testing::UnitTest::GetInstance()->current_test_info()->name(), Versions(versions)) {}

  void ExpectAllRun(const std::string& version) const {
    for (int node = 0; node < 4; ++node) {
      EXPECT_EQ(mesh_.RunningVersion(node), version) << "node " << node;
    }
  }
  std::string Shell(const std::string& script) const {
    return mesh_.Exec(0, {"sh", "-c", script}).out;
  }
  [[nodiscard]] bool IsStaged() const {
    return !Shell("ls /volume1/@node_patch/*.pat 2>/dev/null").empty();
  }

  MeshBox mesh_;
};

class SteppingStones : public EqualJourney {
 protected:
  SteppingStones() : EqualJourney({kFirst, kHigh, kMiddle, kFirst}) {
    mesh_.Publish({"kalo_m1-76000", "kalo_m2-76000"});
    mesh_.Publish({"kalo_m1-76010", "kalo_m2-76010"}, {"--stone"});
    mesh_.Publish({"kalo_m1-76020", "kalo_m2-76020"});
  }
};

TEST_F(SteppingStones, ThreeVersionsBecomeOneStepByStep) {
  const Answer cap = mesh_.Cli({"equal", "check", "--nodes", "0"});
  EXPECT_EQ(cap.data["version"], kMiddle) << cap.text;
  const Answer none = mesh_.Cli({"equal", "check", "--nodes", "1,9"});
  EXPECT_FALSE(none.data["available"].asBool()) << "one is there, the other does not exist";
  const Answer check = mesh_.Cli({"equal", "check"});
  EXPECT_TRUE(check.data["available"].asBool());
  EXPECT_EQ(check.data["version"], kMiddle) << "the stone comes first";
  EXPECT_EQ(check.data["nodes"].size(), 2U);
  EXPECT_EQ(check.data["nodes"][0], 0);
  EXPECT_EQ(check.data["nodes"][1], 3);

  const Answer start = mesh_.Cli({"equal", "start"});
  EXPECT_EQ(start.status, 0) << start.text;
  EXPECT_EQ(start.data["rounds"], 2);
  ExpectAllRun(kHigh);
  EXPECT_TRUE(mesh_.WaitForStatus("none"));
  EXPECT_EQ(Shell("ls /var/run/meshupdatetoequal.pid 2>/dev/null"), "");
  EXPECT_FALSE(IsStaged());
}

class SmallUpdates : public EqualJourney {
 protected:
  SmallUpdates() : EqualJourney({"VXM 1.4.0-76010 Update 2", kMiddle, kMiddle, kFirst}) {
    mesh_.Publish({"kalo_m1-76010", "kalo_m2-76010", "kalo_m1-76010-2", "kalo_m2-76010-2"});
  }
};

TEST_F(SmallUpdates, AloneAndOnTopOfAFullOneInOneStep) {
  const Answer start = mesh_.Cli({"equal", "start"});
  EXPECT_EQ(start.status, 0) << start.text;
  EXPECT_EQ(start.data["rounds"], 1);
  ExpectAllRun("VXM 1.4.0-76010 Update 2");
}

class Lagging : public EqualJourney {
 protected:
  Lagging() : EqualJourney({kMiddle, kFirst, kFirst, kFirst}) {
    mesh_.Publish({"kalo_m1-76010", "kalo_m2-76010"});
  }

  // Starts one step in the CAP's own box and does something when a moment has come there.
  std::string StartAndWhen(const std::string& has_come, const std::string& then) const {
    return Shell(
        "setsid /usr/kalo/bin/kalo-mesh --local equal start --json >/tmp/equal.log 2>&1 </dev/null "
        "&\nuntil [ -s /var/run/meshupdatetoequal.pid ]; do :; done\n"
        "while [ -e /var/run/meshupdatetoequal.pid ]; do if " +
        has_come + "; then " + then + "; exit; fi; done; echo missed");
  }
  [[nodiscard]] bool HasEnded() const {
    return test::WaitFor(
        [&] { return Shell("ls /var/run/meshupdatetoequal.pid 2>/dev/null").empty(); },
        MeshBox::kDeadline);
  }
};

TEST_F(Lagging, ACancelBeforeTheInstallationTakesEverythingBack) {
  for (const char* moment : {"[ -s /volume1/@mesh_full/kalo_m1_76010.pat.part ]",
                             "[ -s /volume1/@mesh_full/kalo_m1_76010.pat ]",
                             "[ -s /volume1/@mesh_full/kalo_m2_76010.pat.part ]"}) {
    SCOPED_TRACE(moment);
    EXPECT_EQ(StartAndWhen(moment, "/usr/kalo/bin/kalo-mesh --local equal cancel --json"), "{}\n");
    EXPECT_TRUE(HasEnded());
    EXPECT_TRUE(Shell("cat /tmp/mesh_upgrade").starts_with("step=\"canceled\"\n"));
    EXPECT_EQ(mesh_.Status()["status"], "mesh_version_not_equal");
    EXPECT_EQ(Shell("ls /volume1/@mesh_full"), "");
    for (int node = 0; node < 4; ++node) EXPECT_TRUE(mesh_.WaitForStaged(node, "")) << node;
  }
  EXPECT_EQ(mesh_.Cli({"equal", "cancel"}).Code(), 117) << "nothing runs";
  EXPECT_EQ(mesh_.Cli({"equal", "start"}).status, 0);
  ExpectAllRun(kMiddle);
}

TEST_F(Lagging, ACancelDuringTheInstallationLetsItGoOn) {
  EXPECT_EQ(StartAndWhen("dbus-send --system --print-reply --dest=kalo.Mesh1 /kalo/Mesh1 "
                         "kalo.Mesh1.GetSystemUpdateProgress | grep -q 'string \"[pw]'",
                         "/usr/kalo/bin/kalo-mesh --local equal cancel --json"),
            "{}\n");
  EXPECT_TRUE(HasEnded());
  EXPECT_TRUE(mesh_.WaitForStatus("none"));
  ExpectAllRun(kMiddle);
}

TEST_F(Lagging, ASecondOneDoesNotBegin) {
  EXPECT_EQ(StartAndWhen("grep -q upgrading /tmp/mesh_upgrade",
                         "/usr/kalo/sbin/kalomeshupgrade --updatecaptoequal 2>&1; echo $?"),
            "kalomeshupgrade: it runs already\n3\n");
  EXPECT_TRUE(HasEnded());
  EXPECT_TRUE(mesh_.WaitForStatus("none"));
  ExpectAllRun(kMiddle);
}

TEST_F(Lagging, ANodeThatCannotTakeItsPatchEndsTheStepForAll) {
  mesh_.Event(3, "fill-disk");
  const Answer failed = mesh_.Cli({"equal", "start"});
  EXPECT_EQ(failed.status, 1) << failed.text;
  EXPECT_TRUE(mesh_.LogHas("node 3 "));
  for (int node = 1; node < 4; ++node) EXPECT_EQ(mesh_.RunningVersion(node), kFirst) << node;
  for (int node = 0; node < 4; ++node) EXPECT_TRUE(mesh_.WaitForStaged(node, "")) << node;
  EXPECT_EQ(mesh_.Status()["status"], "mesh_version_not_equal");
  mesh_.Event(3, "free-disk");
  EXPECT_EQ(mesh_.Cli({"equal", "start"}).status, 0);
  ExpectAllRun(kMiddle);
}

}  // namespace
}  // namespace kalo::journeys
