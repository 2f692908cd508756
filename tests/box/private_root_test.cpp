#include "box/private_root.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

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

}  // namespace
}  // namespace kalo::box
