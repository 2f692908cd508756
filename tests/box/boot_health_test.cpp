#include "box/node_init/boot_health.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

namespace kalo::box {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Verdict = BootHealth::Verdict;

class BootHealthTest : public testing::Test {
 protected:
  void Tick(milliseconds after_boot) { health_.Tick(boot_ + after_boot); }

  bool answers_ = false;
  std::vector<std::string> words_;
  BootHealth::Clock::time_point boot_ = BootHealth::Clock::now();
  BootHealth health_{{[this] { return answers_; }, [this](const char* w) { words_.push_back(w); }},
                     boot_ + seconds(30)};
};

using Words = std::vector<std::string>;

TEST_F(BootHealthTest, ASilentServerIsWaitedFor) {
  Tick(seconds(29));
  EXPECT_EQ(words_, Words{});
  EXPECT_EQ(health_.Get(), Verdict::kOpen);
}

TEST_F(BootHealthTest, AnAnsweringServerConfirmsOnce) {
  answers_ = true;
  Tick(seconds(1));
  Tick(seconds(2));
  EXPECT_EQ(words_, Words{"confirm"});
  EXPECT_EQ(health_.Get(), Verdict::kOpen) << "the installer has not ended";
  health_.OnInstallerExit(0);
  EXPECT_EQ(health_.Get(), Verdict::kHealthy);
  Tick(seconds(31));
  EXPECT_EQ(words_, Words{"confirm"});
}

TEST_F(BootHealthTest, AConfirmThatFailsIsTriedAgainAfterAPause) {
  answers_ = true;
  Tick(milliseconds(1000));
  health_.OnInstallerExit(1);
  Tick(milliseconds(1100));
  EXPECT_EQ(words_, Words{"confirm"});
  Tick(milliseconds(2100));
  EXPECT_EQ(words_, (Words{"confirm", "confirm"}));
  health_.OnInstallerExit(0);
  EXPECT_EQ(health_.Get(), Verdict::kHealthy);
}

TEST_F(BootHealthTest, AServerThatIsSilentUntilTheDeadlineFallsBackOnce) {
  Tick(seconds(30));
  EXPECT_EQ(words_, Words{"fallback"});
  EXPECT_EQ(health_.Get(), Verdict::kBad);
  health_.OnInstallerExit(0);
  answers_ = true;
  Tick(seconds(31));
  EXPECT_EQ(words_, Words{"fallback"});
}

TEST_F(BootHealthTest, AFallbackThatFailsIsTriedAgainTwice) {
  for (int second = 30; second < 40; ++second) {
    Tick(seconds(second));
    health_.OnInstallerExit(1);
    Tick(seconds(second) + milliseconds(500));
  }
  EXPECT_EQ(words_, (Words{"fallback", "fallback", "fallback"}));
  EXPECT_EQ(health_.Get(), Verdict::kBad);
}

TEST(MeshPort, ComesFromTheServersConfiguration) {
  std::ofstream("/tmp/webapid.json") << R"({"address":"127.0.0.3","mesh_port":9443})";
  const MeshPort port = ReadMeshPort("/tmp/webapid.json");
  EXPECT_EQ(port.address, "127.0.0.3");
  EXPECT_EQ(port.port, 9443);
}

TEST(MeshPort, IsTheDefaultWhenTheConfigurationIsUnusable) {
  for (const char* text : {"", "[]", "{\"address\":7,\"mesh_port\":\"x\"}", "{\"mesh_port\":70000}",
                           "{\"mesh_port\":-1}", "nonsense"}) {
    std::ofstream("/tmp/webapid.json") << text;
    const MeshPort port = ReadMeshPort("/tmp/webapid.json");
    EXPECT_EQ(port.address, "127.0.0.1") << text;
    EXPECT_EQ(port.port, 8443) << text;
  }
  EXPECT_EQ(ReadMeshPort("/tmp/missing").port, 8443);
}

TEST(MeshPort, NobodyThereDoesNotAnswer) {
  EXPECT_FALSE(Answers({"127.0.0.1", 8443}));
}

}  // namespace
}  // namespace kalo::box
