#include "box/private_root.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "host/core/spawn.h"

namespace kalo::box {
namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

// @return the position of these words, one after the other; -1 when they do not stand there.
std::ptrdiff_t Find(const Words& command, const Words& words) {
  const auto found = std::search(command.begin(), command.end(), words.begin(), words.end());
  return found == command.end() ? -1 : found - command.begin();
}

TEST(PrivateRoot, AFolderInMemoryTakesThePlaceOfTheStates) {
  PrivateRoot root;
  root.state = "/state";
  root.tmpfs = {{"/tmp", 4096}};
  const Words command = BwrapCommand(root);
  EXPECT_GE(Find(command, {"--size", "4096", "--tmpfs", "/tmp"}), 0);
  EXPECT_EQ(Find(command, {"--bind", "/state/tmp", "/tmp"}), -1);
  EXPECT_GE(Find(command, {"--bind", "/state/var", "/var"}), 0);
}

TEST(PrivateRoot, WhatIsShownBelowTmpIsNotCovered) {
  PrivateRoot root;
  root.state = "/state";
  root.tmpfs = {{"/tmp", 4096}, {"/tmp/mesh/disk", 8192}};
  root.read_only = {"/tmp/build"};
  root.bind = {"/tmp/mesh"};
  const Words command = BwrapCommand(root);
  const auto tmp = Find(command, {"--tmpfs", "/tmp"});
  const auto build = Find(command, {"--ro-bind", "/tmp/build", "/tmp/build"});
  const auto mesh = Find(command, {"--bind", "/tmp/mesh", "/tmp/mesh"});
  const auto disk = Find(command, {"--size", "8192", "--tmpfs", "/tmp/mesh/disk"});
  EXPECT_LT(tmp, build);
  EXPECT_LT(build, mesh);
  EXPECT_LT(mesh, disk);
}

TEST(PrivateRoot, ANodeSharesTheNetworkOfItsLauncher) {
  PrivateRoot root;
  root.state = "/state";
  EXPECT_GE(Find(BwrapCommand(root), {"--unshare-net"}), 0);
  root.own_network = false;
  EXPECT_EQ(Find(BwrapCommand(root), {"--unshare-net"}), -1);
}

TEST(PrivateRoot, AStateFolderCanBePreparedTwice) {
  const fs::path state = "/root/state";
  PrepareState(state);
  PrepareState(state);
  EXPECT_EQ(fs::read_symlink(state / "var/lock"), "/run/lock");
  EXPECT_EQ(fs::read_symlink(state / "var/run"), "/run");
  EXPECT_TRUE(fs::is_directory(state / "tmp/lock"));
}

// What ldconfig does to a machine, in a root whose files in /etc can be replaced.
constexpr const char* kReplaceFiles = R"(
  set -e
  mkfifo /root/sync/up /root/sync/go
  "$0" --bind /root/sync --bind "$1" -- /bin/sh -c '
    echo up >/root/sync/up; read -r go </root/sync/go; exec "$0" -- /bin/true' "$0" &
  read -r up </root/sync/up
  for file in ld.so.cache passwd; do cp /etc/$file /etc/new; mv /etc/new /etc/$file; done
  echo go >/root/sync/go
  wait $!
)";

TEST(PrivateRoot, ARootInARootStartsAfterTheMachinesFilesWereReplaced) {
  for (const char* folder : {"/root/sync", "/root/etc"}) {
    fs::remove_all(folder);
    fs::create_directory(folder);
  }
  fs::copy("/etc", "/root/etc", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  const fs::path program = KALO_PRIVATE_ROOT;
  const pid_t pid =
      Spawn({"/usr/bin/bwrap", "--dev-bind", "/", "/", "--bind", "/root/etc", "/etc", "--",
             "/bin/sh", "-c", kReplaceFiles, program, program.parent_path().parent_path()});
  ASSERT_GT(pid, 0);
  EXPECT_EQ(WaitForExit(pid), 0);
}

}  // namespace
}  // namespace kalo::box
