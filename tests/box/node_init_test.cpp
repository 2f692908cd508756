// node-init in a box of its own, with programs that stand in for the node's.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "box/commands/node_control.h"
#include "box/launcher/node_box.h"
#include "box/layout.h"
#include "box/private_root.h"
#include "host/core/unique_fd.h"
#include "tests/support/wait.h"

namespace kalo::box {
namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using test::WaitFor;

constexpr seconds kDeadline{20};

std::string Read(const fs::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

class NodeInitTest : public testing::Test {
 protected:
  void SetUp() override {
    fs::remove_all(layout_.State());
    PrepareState(layout_.Node(0));
    fs::create_directories(layout_.NodeBox(0));
    const fs::path slot = layout_.Node(0) / "volume1/@slots/a";
    fs::create_directories(slot / "sbin");
    fs::copy_file(KALO_STAND_IN, slot / "sbin/webapid");
    fs::copy_file(KALO_STAND_IN, slot / "sbin/kalo-install");
    fs::copy_file(fs::path(KALO_BUILD) / "box/reboot", slot / "sbin/reboot");
    std::ofstream(slot / "VERSION") << "unique=\"x\"\n";
    fs::create_symlink("a", slot.parent_path() / "current");
    node_.Tick(NodeBox::Clock::now());
    ASSERT_GT(node_.Pid(), 0);
    ASSERT_TRUE(WaitForBoot()) << Read(layout_.NodeConsole(0));
  }

  void TearDown() override {
    if (node_.Pid() == 0) return;
    node_.PullPlug();
    waitpid(node_.Pid(), nullptr, 0);
  }

  bool WaitForBoot() {
    return WaitFor([this] { return fs::exists(layout_.NodeHealth(0)); }, kDeadline);
  }

  // @return the exit status of the node's box.
  int WaitForEnd() {
    int status = 0;
    const bool ended =
        WaitFor([&] { return waitpid(node_.Pid(), &status, WNOHANG) == node_.Pid(); }, kDeadline);
    EXPECT_TRUE(ended);
    if (!ended) return -1;
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    node_.OnExit(code, NodeBox::Clock::now());
    return code;
  }

  int Exec(const std::vector<std::string>& argv) {
    const UniqueFd out(open("/root/out", O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    const std::array fds = {out.Get(), out.Get(), out.Get()};
    const int status = ExecInNode(layout_, 0, argv, fds);
    output_ = Read("/root/out");
    return status;
  }

  std::string OutputOf(const std::vector<std::string>& argv) {
    EXPECT_EQ(Exec(argv), 0) << output_;
    return output_;
  }

  void RestartByItsOwnProgram() {
    fs::remove(layout_.NodeHealth(0));
    try {
      static_cast<void>(Exec({"/usr/kalo/sbin/reboot"}));
    } catch (const std::runtime_error&) {
      // The node may be gone before it tells how the program ended.
    }
    ASSERT_EQ(WaitForEnd(), kStartAgain);
    node_.Tick(NodeBox::Clock::now());
    ASSERT_TRUE(WaitForBoot());
  }

  Layout layout_{"/root/mesh"};
  NodeBox node_{0, {layout_, KALO_BUILD, std::uint64_t{1} << 20, 0, -1}};
  std::string output_;
};

TEST_F(NodeInitTest, AHealthyBootIsConfirmedAndTheBoxKnowsItsId) {
  EXPECT_EQ(OutputOf({"cat", "/var/log/install-words"}), "confirm\n");
  EXPECT_EQ(OutputOf({"cat", "/run/boot_id"}), Read(layout_.NodeHealth(0)) + "\n");
}

TEST_F(NodeInitTest, ARestartKeepsTheStorageAndEmptiesTheRest) {
  OutputOf({"touch", "/tmp/mesh_upgrade", "/run/kalo/install", "/volume1/kept", "/var/kept"});
  const std::string before = OutputOf({"cat", "/run/boot_id"});
  RestartByItsOwnProgram();
  EXPECT_NE(OutputOf({"cat", "/run/boot_id"}), before);
  EXPECT_NE(Exec({"ls", "/tmp/mesh_upgrade"}), 0);
  EXPECT_NE(Exec({"ls", "/run/kalo/install"}), 0);
  OutputOf({"ls", "/volume1/kept", "/var/kept"});
}

TEST_F(NodeInitTest, ShowsTheChosenSlotReadOnly) {
  EXPECT_EQ(OutputOf({"cat", "/usr/kalo/VERSION"}), "unique=\"x\"\n");
  EXPECT_NE(Exec({"touch", "/usr/kalo/VERSION"}), 0);
  OutputOf({"touch", "/volume1/@slots/a/VERSION"});
}

TEST_F(NodeInitTest, ADeadServiceIsStartedAgain) {
  const std::string before = OutputOf({"pidof", "webapid"});
  SignalService(layout_, 0, "webapid", SIGKILL);
  EXPECT_TRUE(WaitFor(
      [&] {
        return Exec({"pidof", "webapid"}) == 0 && output_ != before;
      },
      kDeadline));
}

TEST_F(NodeInitTest, AServiceThatIsNotWantedEndsAndStaysOffUntilItIs) {
  WantService(layout_, 0, "webapid", false);
  EXPECT_TRUE(WaitFor([&] { return Exec({"pidof", "webapid"}) != 0; }, kDeadline));
  WantService(layout_, 0, "webapid", true);
  EXPECT_TRUE(WaitFor([&] { return Exec({"pidof", "webapid"}) == 0; }, kDeadline));
  EXPECT_THROW(WantService(layout_, 0, "nonsense", true), std::runtime_error);
}

TEST_F(NodeInitTest, ACommandsStatusComesOut) {
  EXPECT_EQ(Exec({"sh", "-c", "exit 7"}), 7);
  EXPECT_EQ(Exec({"sh", "-c", "kill -TERM $$"}), 128 + SIGTERM);
  EXPECT_EQ(Exec({"no-such-program"}), 127);
}

TEST_F(NodeInitTest, KeepsTheSystemLog) {
  OutputOf({"logger", "-p", "user.err", "-t", "webapid-worker", "a line"});
  EXPECT_TRUE(WaitFor(
      [&] {
        return OutputOf({"cat", "/var/log/messages"}).find("webapid-worker: a line\n") !=
               std::string::npos;
      },
      kDeadline));
}

TEST_F(NodeInitTest, HasABusOfItsOwn) {
  OutputOf({"busctl", "--system", "list"});
  EXPECT_NE(output_.find("org.freedesktop.DBus"), std::string::npos);
}

TEST_F(NodeInitTest, ADiskHasItsSize) {
  EXPECT_NE(Exec({"dd", "if=/dev/zero", "of=/tmp/big", "bs=64K", "count=100"}), 0);
}

TEST_F(NodeInitTest, SwitchingOffEndsWithZero) {
  node_.SwitchOff();
  EXPECT_EQ(WaitForEnd(), 0);
}

TEST(NodeInitProgram, RefusesToRunOutsideABox) {
  const fs::path program = fs::path(KALO_BUILD) / "box/node-init";
  std::ofstream("/tmp/kept") << "text";
  const pid_t pid = fork();
  if (pid == 0) {
    execl(program.c_str(), "node-init", nullptr);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_TRUE(fs::exists("/tmp/kept"));
}

}  // namespace
}  // namespace kalo::box
