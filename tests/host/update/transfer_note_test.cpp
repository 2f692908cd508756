#include "host/update/transfer_note.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include "platform/paths.h"
#include "tests/support/wait.h"

namespace kalo {
namespace {

namespace fs = std::filesystem;

class TransferNoteTest : public testing::Test {
 protected:
  TransferNoteTest() { fs::remove_all(KALO::paths::kTransfers); }
};

// Several processes: a lock is seen by those who did not take it.
TEST_F(TransferNoteTest, TellsHowFarEachTransferIs) {
  EXPECT_TRUE(TransfersUnderWay().empty());
  {
    TransferNote node("node-2");
    TransferNote download("download-kalo_m1");
    node.Moved(5, 10);
    download.Moved(std::uint64_t{6} << 32, std::uint64_t{7} << 32);
    const auto transfers = TransfersUnderWay();
    ASSERT_EQ(transfers.size(), 2U);
    EXPECT_EQ(transfers[0].name, "download-kalo_m1");
    EXPECT_EQ(transfers[0].done, std::uint64_t{6} << 32);
    EXPECT_EQ(transfers[0].whole, std::uint64_t{7} << 32);
    EXPECT_EQ(transfers[1].name, "node-2");
    EXPECT_EQ(transfers[1].done, 5U);
  }
  EXPECT_TRUE(TransfersUnderWay().empty());
  EXPECT_TRUE(fs::is_empty(KALO::paths::kTransfers));
}

TEST_F(TransferNoteTest, WritesFourTimesASecondAtMost) {
  TransferNote note("node-1");
  note.Moved(1, 10);
  note.Moved(2, 10);
  EXPECT_EQ(TransfersUnderWay().at(0).done, 1U);
  EXPECT_TRUE(test::WaitFor([&] {
    note.Moved(3, 10);
    return TransfersUnderWay().at(0).done == 3U;
  }));
}

TEST_F(TransferNoteTest, OneThatSaidNothingYetIsNotTold) {
  const TransferNote note("node-1");
  EXPECT_TRUE(TransfersUnderWay().empty());
}

TEST_F(TransferNoteTest, WhatAKilledProcessLeftDoesNotCount) {
  const pid_t child = fork();
  if (child == 0) {
    TransferNote note("node-3");
    note.Moved(1, 2);
    pause();
    _exit(0);
  }
  EXPECT_TRUE(test::WaitFor([] { return TransfersUnderWay().size() == 1; }));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_TRUE(TransfersUnderWay().empty());
  TransferNote again("node-3");
  again.Moved(4, 5);
  EXPECT_EQ(TransfersUnderWay().at(0).done, 4U);
}

TEST_F(TransferNoteTest, AFolderThatCannotBeUsedCostsTheNoteAlone) {
  fs::create_directories(fs::path(KALO::paths::kTransfers).parent_path());
  std::ofstream(KALO::paths::kTransfers) << "in the way";
  TransferNote note("node-1");
  note.Moved(1, 2);
  EXPECT_TRUE(TransfersUnderWay().empty());
  fs::remove(KALO::paths::kTransfers);
}

TEST_F(TransferNoteTest, PlantedLinksAndHalfFilesAreNoTransfers) {
  fs::create_directories(KALO::paths::kTransfers);
  fs::create_symlink("/etc/passwd", fs::path(KALO::paths::kTransfers) / "node-1");
  std::ofstream(fs::path(KALO::paths::kTransfers) / "node-2") << "12";
  EXPECT_TRUE(TransfersUnderWay().empty());
}

}  // namespace
}  // namespace kalo
