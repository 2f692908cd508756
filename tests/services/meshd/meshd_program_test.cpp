// The program meshd from outside: how it starts and ends.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

#include "host/core/spawn.h"
#include "host/core/unique_fd.h"
#include "host/mesh/wire.h"
#include "platform/mesh/client.h"
#include "platform/paths.h"
#include "tests/host/mesh/private_bus.h"
#include "tests/support/wait.h"

namespace kalo {
namespace {

using namespace std::chrono_literals;
using KALO::MESH::SDK::Client::MeshClientFactory;
using ::testing::HasSubstr;

struct Ending {
  int status = -1;
  std::string text;
};

// One run of meshd, its output caught.
class MeshdRun {
 public:
  explicit MeshdRun(const std::vector<std::string>& arguments = {},
                    const std::vector<std::string>& prefix = {}) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    output_.Reset(ends[0]);
    const UniqueFd write_end(ends[1]);
    std::vector<std::string> argv = {KALO_TEST_MESHD};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    argv.insert(argv.begin(), prefix.begin(), prefix.end());
    SpawnOptions options;
    options.stdout_fd = write_end.Get();
    options.stderr_fd = write_end.Get();
    pid_ = Spawn(argv, options);
  }
  MeshdRun(const MeshdRun&) = delete;
  MeshdRun& operator=(const MeshdRun&) = delete;
  ~MeshdRun() {
    if (pid_ < 0) return;
    kill(pid_, SIGKILL);
    static_cast<void>(WaitForExit(pid_));
  }

  void Terminate() const { kill(pid_, SIGTERM); }
  Ending Wait() {
    Ending ending;
    std::array<char, 4096> buffer{};
    for (ssize_t size = 0; (size = read(output_.Get(), buffer.data(), buffer.size())) > 0;) {
      ending.text.append(buffer.data(), static_cast<std::size_t>(size));
    }
    ending.status = WaitForExit(pid_);
    pid_ = -1;
    return ending;
  }

 private:
  pid_t pid_ = -1;
  UniqueFd output_;
};

class MeshdProgram : public ::testing::Test {
 protected:
  MeshdProgram() {
    std::filesystem::create_directories("/etc/kalo/mesh");
    std::ofstream(KALO::paths::kMeshNodes)
        << R"([{"id":0,"address":"127.0.0.1","parent":0,"hops":0,"wired":true}])";
  }

  static bool WaitUntilServed() {
    return test::WaitFor([] {
      const auto status = MeshClientFactory::GetClient()->GetMeshSystemStatus();
      return status.code == 0 && !status.syncing;
    });
  }
};

TEST_F(MeshdProgram, ExplainsItself) {
  const Ending ending = MeshdRun({"--help"}).Wait();
  EXPECT_EQ(ending.status, 0);
  EXPECT_THAT(ending.text, HasSubstr("--interval-ms"));
}

TEST_F(MeshdProgram, RefusesAnUnknownOption) {
  EXPECT_NE(MeshdRun({"--nonsense"}).Wait().status, 0);
  EXPECT_NE(MeshdRun({"--interval-ms", "0"}).Wait().status, 0);
}

TEST_F(MeshdProgram, EndsWithAMessageWithoutABus) {
  const Ending ending = MeshdRun().Wait();
  EXPECT_EQ(ending.status, 1);
  EXPECT_THAT(ending.text, HasSubstr("the system bus cannot be used"));
}

// It would never reach a node any more; started anew it may.
TEST_F(MeshdProgram, EndsWithAMessageWhenTheTlsLibraryCannotBeUsed) {
  const PrivateBus bus;
  const Ending ending =
      MeshdRun({"--interval-ms", "50"}, {"/usr/bin/env", "LD_PRELOAD=" NO_RANDOMNESS}).Wait();
  EXPECT_EQ(ending.status, 1);
  EXPECT_THAT(ending.text, HasSubstr("nodes can be called by a new process only"));
}

TEST_F(MeshdProgram, EndsWithAMessageWhenTheNameIsTaken) {
  const PrivateBus bus;
  const auto connection = sdbus::createSystemBusConnection(mesh::kServiceName);
  const Ending ending = MeshdRun().Wait();
  EXPECT_EQ(ending.status, 1);
  EXPECT_THAT(ending.text, HasSubstr("the system bus cannot be used"));
}

TEST_F(MeshdProgram, EndsWithAMessageWithoutAListOfNodes) {
  const PrivateBus bus;
  std::ofstream(KALO::paths::kMeshNodes) << "[]";
  const Ending ending = MeshdRun().Wait();
  EXPECT_EQ(ending.status, 1);
  EXPECT_THAT(ending.text, HasSubstr("node 0 is not in the list"));
}

// No credentials and nobody at the address: the node is offline, the service serves.
TEST_F(MeshdProgram, ServesAndEndsCleanlyOnTerm) {
  const PrivateBus bus;
  MeshdRun meshd({"--interval-ms", "50"});
  ASSERT_TRUE(WaitUntilServed());
  EXPECT_TRUE(MeshClientFactory::GetClient()->GetMeshSystemStatus().nodes.at(0).offline);
  meshd.Terminate();
  const Ending ending = meshd.Wait();
  EXPECT_EQ(ending.status, 0) << ending.text;
}

// The bus library throws when its loop cannot be told to end.
TEST_F(MeshdProgram, EndsWithAMessageWhenItCannotEndInOrder) {
  const PrivateBus bus;
  MeshdRun meshd({"--interval-ms", "50"}, {"/usr/bin/env", "LD_PRELOAD=" NO_EVENTS});
  ASSERT_TRUE(WaitUntilServed());
  const std::filesystem::path barred = "/tmp/no-events";
  std::ofstream{barred};
  meshd.Terminate();
  const Ending ending = meshd.Wait();
  std::filesystem::remove(barred);
  EXPECT_EQ(ending.status, 1);
  EXPECT_THAT(ending.text, HasSubstr("cannot end in order"));
}

TEST_F(MeshdProgram, EndsWithAnErrorWhenTheBusGoes) {
  PrivateBus bus;
  MeshdRun meshd({"--interval-ms", "50"});
  ASSERT_TRUE(WaitUntilServed());
  bus.Stop();
  EXPECT_EQ(meshd.Wait().status, 1);
}

}  // namespace
}  // namespace kalo
