#include "services/meshd/bus_service.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>

#include "host/mesh/wire.h"
#include "platform/core/key_value.h"
#include "platform/mesh/client.h"
#include "platform/paths.h"
#include "tests/host/mesh/private_bus.h"
#include "tests/services/meshd/fake_node.h"
#include "tests/support/log_socket.h"
#include "tests/support/wait.h"

namespace kalo::meshd {
namespace {

using namespace std::chrono_literals;
using KALO::MESH::SDK::Client::MeshClientFactory;
using mesh::MeshCode;
using test::WaitFor;

constexpr const char* kFolder = "/var/lib/kalo/bus-test";
constexpr int kSkip = 77;

MeshServiceOptions Fast() {
  MeshServiceOptions options;
  options.interval = 20ms;
  options.state_folder = kFolder;
  return options;
}

// The service on a bus of its own, with nodes that exist in the test only.
class BusServiceTest : public ::testing::Test {
 protected:
  BusServiceTest() {
    std::filesystem::remove_all(kFolder);
    std::filesystem::remove(KALO::paths::kUpgradeProgress);
    for (std::uint32_t id = 0; id < 4; ++id) nodes_.emplace_back(id);
    connection_ = sdbus::createSystemBusConnection();
    StartService();
    connection_->enterEventLoopAsync();
  }
  BusServiceTest(const BusServiceTest&) = delete;
  BusServiceTest& operator=(const BusServiceTest&) = delete;
  ~BusServiceTest() override { connection_->leaveEventLoop(); }

  void StartService() {
    service_ = std::make_unique<MeshService>(
        FourNodes(),
        [this](const MeshNode& node) { return std::make_unique<FakeNodeApi>(nodes_[node.id]); },
        Fast());
    bus_service_ = std::make_unique<BusService>(*connection_, *service_);
  }

  static bool Synced() { return !MeshClientFactory::GetClient()->GetMeshSystemStatus().syncing; }
  static std::uint32_t Start() { return MeshClientFactory::GetClient()->StartSystemUpdate(); }
  bool WaitForStart(std::uint32_t id) {
    return WaitFor([this, id] { return nodes_[id].Starts() == 1; });
  }

  PrivateBus bus_;
  std::deque<FakeNode> nodes_;
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<MeshService> service_;
  std::unique_ptr<BusService> bus_service_;
};

// The answer to a start comes from another thread than the answers to those who look meanwhile.
TEST_F(BusServiceTest, AnswersAStartWhileOthersLook) {
  ASSERT_TRUE(WaitFor(Synced));
  std::vector<std::jthread> lookers;
  for (int i = 0; i < 2; ++i) {
    lookers.emplace_back([](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        EXPECT_EQ(MeshClientFactory::GetClient()->GetSystemUpdateProgress().code, 0);
      }
    });
  }
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(Start(), static_cast<std::uint32_t>(MeshCode::kNothingStaged)) << i;
  }
}

TEST_F(BusServiceTest, TellsWhatTheNodesSay) {
  nodes_[2].Stage(kNewVersion);
  ASSERT_TRUE(WaitFor(Synced));
  const auto infos = MeshClientFactory::GetClient()->GetNodeInfos();
  EXPECT_EQ(infos.code, 0);
  ASSERT_EQ(infos.nodes.size(), 4U);
  EXPECT_EQ(infos.nodes.at(0).unique, "kalo_cap1");
  EXPECT_EQ(infos.nodes.at(3).address, "127.0.0.4");
  EXPECT_EQ(infos.nodes.at(3).full_version, kOldVersion);
  EXPECT_EQ(infos.nodes.at(3).build_num, 76000);
  EXPECT_EQ(infos.nodes.at(3).boot_id, "boot-0");
  const auto access = MeshClientFactory::GetClient()->GetRepeaterAccessInfos();
  ASSERT_EQ(access.nodes.size(), 4U);
  EXPECT_EQ(access.nodes.at(3).parent_id, 1U);
  EXPECT_EQ(access.nodes.at(3).hops, 2U);
  EXPECT_FALSE(access.nodes.at(3).wired);
  const auto progress = MeshClientFactory::GetClient()->GetSystemUpdateProgress();
  EXPECT_EQ(progress.code, 0);
  EXPECT_EQ(progress.step, "none");
}

TEST_F(BusServiceTest, SeesANodeGoOfflineAndComeBack) {
  ASSERT_TRUE(WaitFor(Synced));
  nodes_[3].SetReachable(false);
  EXPECT_TRUE(WaitFor(
      [] { return MeshClientFactory::GetClient()->GetMeshSystemStatus().nodes.at(3).offline; }));
  EXPECT_EQ(MeshClientFactory::GetClient()->GetRepeaterAccessInfos().nodes.size(), 3U);
  EXPECT_EQ(MeshClientFactory::GetClient()->GetNodeInfos().nodes.size(), 4U);
  nodes_[3].SetReachable(true);
  EXPECT_TRUE(WaitFor(
      [] { return !MeshClientFactory::GetClient()->GetMeshSystemStatus().nodes.at(3).offline; }));
}

TEST_F(BusServiceTest, NothingStagedIsItsOwnCode) {
  ASSERT_TRUE(WaitFor(Synced));
  EXPECT_EQ(Start(), static_cast<std::uint32_t>(MeshCode::kNothingStaged));
}

// The nodes are asked before the answer, and meanwhile the bus may end.
TEST_F(BusServiceTest, AnAnswerThatReachesNobodyEndsNothing) {
  test::LogSocket log;
  ASSERT_TRUE(WaitFor(Synced));
  auto busy = nodes_[3].Busy();
  sd_bus* caller = nullptr;
  ASSERT_GE(sd_bus_open_system(&caller), 0);
  const auto call = [&](const char* method, sd_bus_message_handler_t receiver) {
    return sd_bus_call_method_async(caller, nullptr, mesh::kServiceName, mesh::kObjectPath,
                                    mesh::kInterface, method, receiver, nullptr, "");
  };
  const auto ignore = [](sd_bus_message*, void*, sd_bus_error*) { return 0; };
  ASSERT_GE(call(mesh::method::kStartSystemUpdate, ignore), 0);
  // Its answer shows that the service has the call before it.
  ASSERT_GE(sd_bus_call_method(caller, mesh::kServiceName, mesh::kObjectPath, mesh::kInterface,
                               mesh::method::kGetSystemUpdateProgress, nullptr, nullptr, ""),
            0);
  connection_->leaveEventLoop();
  bus_service_.reset();
  bus_.Stop();
  busy.unlock();
  EXPECT_TRUE(log.WaitFor("who started the update gets no answer: "));
  sd_bus_unref(caller);
}

TEST_F(BusServiceTest, UpdatesTheMesh) {
  ASSERT_TRUE(WaitFor(Synced));
  for (FakeNode& node : nodes_) node.Stage(kNewVersion);
  ASSERT_EQ(Start(), 0U) << "what was staged a moment ago is seen";
  EXPECT_EQ(Start(), static_cast<std::uint32_t>(MeshCode::kUpdateRunning));
  for (const std::uint32_t id : {3U, 2U, 1U, 0U}) {
    ASSERT_TRUE(WaitForStart(id)) << id;
    // Equally far nodes end together: the next level waits for both.
    if (id == 2) continue;
    nodes_[id].Boot(kNewVersion);
    if (id == 1) nodes_[2].Boot(kNewVersion);
  }
  EXPECT_TRUE(WaitFor(
      [] { return MeshClientFactory::GetClient()->GetSystemUpdateProgressV2().step == "finish"; }));
  const auto progress = MeshClientFactory::GetClient()->GetSystemUpdateProgressV2();
  EXPECT_EQ(progress.version, kNewVersion);
  EXPECT_EQ(progress.total_percentage, 100);
  EXPECT_EQ(progress.error_number, 0);
  EXPECT_TRUE(WaitFor([] {
    return KLIBCFileCheckKeyValue(KALO::paths::kUpgradeProgress, "step", "finished", 0) == 1;
  }));
}

TEST_F(BusServiceTest, TellsWhichNodeFailedAndWhy) {
  ASSERT_TRUE(WaitFor(Synced));
  nodes_[1].Stage(kNewVersion);
  ASSERT_EQ(Start(), 0U);
  ASSERT_TRUE(WaitForStart(1));
  nodes_[1].FailInstall(5224, "disk full");
  ASSERT_TRUE(WaitFor(
      [] { return MeshClientFactory::GetClient()->GetSystemUpdateProgress().step == "failed"; }));
  const auto progress = MeshClientFactory::GetClient()->GetSystemUpdateProgress();
  EXPECT_EQ(progress.error_number, 5224);
  EXPECT_EQ(progress.err_desc, "node 1 (node1) could not install");
  EXPECT_EQ(progress.err_msg, "cannot write: disk full");
}

TEST_F(BusServiceTest, DetailsComeBackWhole) {
  ASSERT_TRUE(WaitFor(Synced));
  const MeshDetails details = GetMeshDetails();
  EXPECT_EQ(details.code, 0);
  EXPECT_FALSE(details.update_running);
  ASSERT_EQ(details.nodes.size(), 4U);
  EXPECT_EQ(details.nodes[0].role, "cap");
  EXPECT_EQ(details.nodes[3].name, "node3");
  EXPECT_EQ(details.nodes[3].model, "kalo_sat1");
  EXPECT_TRUE(details.nodes[3].online);
}

TEST_F(BusServiceTest, IntrospectionHasTheTypesOfTheWire) {
  const auto proxy = sdbus::createProxy(mesh::kServiceName, mesh::kObjectPath);
  std::string xml;
  proxy->callMethod("Introspect")
      .onInterface("org.freedesktop.DBus.Introspectable")
      .storeResultsTo(xml);
  for (const char* type : {"\"a{u(ssssiiss)}\"", "\"a{u(uub)}\"", "\"a(ub)\"", "\"a(ussssbssiss)\"",
                           "name=\"total_percentage\""}) {
    EXPECT_NE(xml.find(type), std::string::npos) << type << "\n" << xml;
  }
}

TEST_F(BusServiceTest, ASecondServiceDoesNotGetTheName) {
  const auto other = sdbus::createSystemBusConnection();
  EXPECT_THROW(other->requestName(mesh::kServiceName), sdbus::Error);
}

TEST_F(BusServiceTest, OnlyRootMayCallItOrTakeItsName) {
  ASSERT_TRUE(WaitFor(Synced));
  const pid_t pid = fork();
  if (pid == 0) {
    alarm(30);
    if (setuid(65534) != 0) _exit(kSkip);
    const auto code = MeshClientFactory::GetClient()->GetMeshSystemStatus().code;
    sd_bus* bus = nullptr;
    const bool owned = sd_bus_open_system(&bus) >= 0 &&
                       sd_bus_request_name(bus, mesh::kServiceName, SD_BUS_NAME_QUEUE) >= 0;
    _exit(code == static_cast<std::uint16_t>(MeshCode::kErrorReply) && !owned ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == kSkip) GTEST_SKIP() << "only one user in this namespace";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace kalo::meshd
