#include "services/meshd/state_file_keeper.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

#include "host/core/pid_file.h"
#include "host/core/unique_fd.h"
#include "platform/core/key_value.h"
#include "platform/paths.h"

namespace kalo::meshd {
namespace {

namespace fs = std::filesystem;
namespace paths = KALO::paths;

std::string Value(const char* path, const char* key) {
  std::array<char, 8192> value{};
  return KLIBCFileGetKeyValue(path, key, value.data(), value.size(), 0) > 0 ? value.data() : "";
}

void Write(const char* path, const std::string& text) {
  std::ofstream(path) << text;
}

// Another process's lock; flock goes by open file, so another descriptor stands for it.
UniqueFd Hold(const char* path) {
  UniqueFd file(open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  EXPECT_EQ(flock(file.Get(), LOCK_EX | LOCK_NB), 0) << path;
  return file;
}

// Another process with its number in a file.
class OtherPidFile {
 public:
  explicit OtherPidFile(const char* path) {
    std::array<int, 2> ready{};
    EXPECT_EQ(pipe2(ready.data(), O_CLOEXEC), 0);
    pid_ = fork();
    if (pid_ == 0) {
      const auto file = PidFile::TryTake(path);
      (void)!write(ready[1], "x", 1);
      pause();
      _exit(file ? 0 : 1);
    }
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    for (const int fd : ready) close(fd);
  }
  OtherPidFile(const OtherPidFile&) = delete;
  OtherPidFile& operator=(const OtherPidFile&) = delete;
  ~OtherPidFile() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

 private:
  pid_t pid_ = 0;
};

UpdateRecord Record(UpdateState state, int total = 0) {
  UpdateRecord record;
  record.state = state;
  record.total = total;
  return record;
}

class StateFileKeeperTest : public ::testing::Test {
 protected:
  StateFileKeeperTest() {
    for (const char* path : {paths::kUpgradeProgress, paths::kDownloadProgress, paths::kPatchLock,
                             paths::kEqualUpdatePid}) {
      fs::remove(path);
    }
  }

  void ExpectFile(const std::string& step, const std::string& percent) {
    EXPECT_EQ(Value(paths::kUpgradeProgress, "step"), step);
    EXPECT_EQ(Value(paths::kUpgradeProgress, "percent"), percent);
  }

  StateFileKeeper keeper_;
};

TEST_F(StateFileKeeperTest, WritesTheFileOfARunningUpdate) {
  keeper_.Keep(Record(UpdateState::kRunning, 30));
  ExpectFile("upgrading", "30");
}

TEST_F(StateFileKeeperTest, AHigherPercentageStays) {
  Write(paths::kUpgradeProgress, "step=upgrading\npercent=30\n");
  keeper_.Keep(Record(UpdateState::kRunning, 5));
  ExpectFile("upgrading", "30");
  keeper_.Keep(Record(UpdateState::kRunning, 31));
  ExpectFile("upgrading", "31");
  Write(paths::kUpgradeProgress, "step=upgrading\npercent=101\n");
  keeper_.Keep(Record(UpdateState::kRunning, 31));
  ExpectFile("upgrading", "31");
}

TEST_F(StateFileKeeperTest, RestoresWhatOthersWroteWhileAnUpdateRuns) {
  for (const char* text : {"step=upgrading\npercent=0\n", "step=ready_upgrade\npercent=100\n",
                           "step=upgrading\n", "percent=5\n", "", "step=upgrading\npercent=x\n"}) {
    Write(paths::kUpgradeProgress, text);
    keeper_.Keep(Record(UpdateState::kRunning, 30));
    ExpectFile("upgrading", "30");
  }
}

TEST_F(StateFileKeeperTest, KeepsOtherKeysOfTheFile) {
  Write(paths::kUpgradeProgress, "note=mine\nstep=none\npercent=1\n");
  keeper_.Keep(Record(UpdateState::kRunning, 30));
  EXPECT_EQ(Value(paths::kUpgradeProgress, "note"), "mine");
}

TEST_F(StateFileKeeperTest, WritesNothingWhenNothingChanged) {
  keeper_.Keep(Record(UpdateState::kRunning, 30));
  struct stat before {};
  ASSERT_EQ(stat(paths::kUpgradeProgress, &before), 0);
  keeper_.Keep(Record(UpdateState::kRunning, 30));
  struct stat after {};
  ASSERT_EQ(stat(paths::kUpgradeProgress, &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(StateFileKeeperTest, EndsAFinishedUpdate) {
  Write(paths::kUpgradeProgress, "step=upgrading\npercent=99\n");
  Write(paths::kDownloadProgress, "step=downloading\npercent=10\n");
  keeper_.Keep(Record(UpdateState::kFinished, 100));
  ExpectFile("finished", "100");
  EXPECT_FALSE(fs::exists(paths::kDownloadProgress));
}

TEST_F(StateFileKeeperTest, EndsAFailedUpdate) {
  Write(paths::kUpgradeProgress, "step=upgrading\npercent=99\n");
  Write(paths::kDownloadProgress, "step=finished\npercent=100\n");
  keeper_.Keep(Record(UpdateState::kFailed, 60));
  ExpectFile("failed", "0");
  EXPECT_FALSE(fs::exists(paths::kDownloadProgress));
}

TEST_F(StateFileKeeperTest, EndsAnUpdateThatNobodyKnows) {
  Write(paths::kUpgradeProgress, "step=upgrading\npercent=0\n");
  keeper_.Keep(Record(UpdateState::kNone));
  ExpectFile("failed", "0");
}

// The request writes "upgrading" when the update may be over already.
TEST_F(StateFileKeeperTest, EndsAnUpdateThatWasOverBeforeTheRequestWroteUpgrading) {
  keeper_.Keep(Record(UpdateState::kRunning, 50));
  keeper_.Keep(Record(UpdateState::kFinished, 100));
  ExpectFile("finished", "100");
  Write(paths::kUpgradeProgress, "step=upgrading\npercent=0\n");
  keeper_.Keep(Record(UpdateState::kFinished, 100));
  ExpectFile("finished", "100");
}

TEST_F(StateFileKeeperTest, LeavesEveryOtherWordAlone) {
  for (const char* step : {"ready_upgrade", "finished", "failed", "none", "upgrading_soon"}) {
    Write(paths::kUpgradeProgress, std::string("step=") + step + "\npercent=7\n");
    Write(paths::kDownloadProgress, "step=downloading\npercent=10\n");
    keeper_.Keep(Record(UpdateState::kFinished, 100));
    ExpectFile(step, "7");
    EXPECT_TRUE(fs::exists(paths::kDownloadProgress));
  }
}

TEST_F(StateFileKeeperTest, MakesNoFileWhenNoUpdateRuns) {
  keeper_.Keep(Record(UpdateState::kFailed));
  EXPECT_FALSE(fs::exists(paths::kUpgradeProgress));
  EXPECT_FALSE(fs::exists(paths::kEqualUpdatePid));
}

TEST_F(StateFileKeeperTest, TheEqualUpdateEndsItsOwnFile) {
  Write(paths::kUpgradeProgress, "step=upgrading\npercent=20\n");
  {
    const OtherPidFile held(paths::kEqualUpdatePid);
    keeper_.Keep(Record(UpdateState::kFinished, 100));
    ExpectFile("upgrading", "20");
  }
  UpdateRecord its_own = Record(UpdateState::kFinished, 100);
  its_own.begun = std::time(nullptr) + 1;
  keeper_.Keep(its_own);
  ExpectFile("finished", "100");
}

// What it handed out waits at the nodes; the service's last update is another one.
TEST_F(StateFileKeeperTest, AnEqualUpdateThatDiedBeforeItInstalledIsNotFinished) {
  Write(paths::kUpgradeProgress, "step=upgrading\npercent=20\n");
  { const OtherPidFile killed(paths::kEqualUpdatePid); }
  UpdateRecord earlier = Record(UpdateState::kFinished, 100);
  earlier.begun = std::time(nullptr) - 3600;
  keeper_.Keep(earlier);
  ExpectFile("failed", "0");
}

TEST_F(StateFileKeeperTest, ADownloadThatNobodyRunsIsEnded) {
  Write(paths::kDownloadProgress, "step=downloading\npercent=10\n");
  {
    const UniqueFd held = Hold(paths::kPatchLock);
    keeper_.Keep(Record(UpdateState::kFailed));
    EXPECT_EQ(Value(paths::kDownloadProgress, "step"), "downloading");
  }
  keeper_.Keep(Record(UpdateState::kFailed));
  EXPECT_EQ(Value(paths::kDownloadProgress, "step"), "failed");
}

TEST_F(StateFileKeeperTest, AStepThatCameWithoutItsPercentageGetsOne) {
  for (const char* path : {paths::kDownloadProgress, paths::kUpgradeProgress}) {
    Write(path, "# kept\nstep=\"canceled\"\n");
    StateFileKeeper().Keep(UpdateRecord());
    std::ifstream file(path);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}),
              "# kept\nstep=\"canceled\"\npercent=\"0\"\n");
  }
}

TEST_F(StateFileKeeperTest, AHeldPatchLockProtectsTheDownloadsFile) {
  Write(paths::kUpgradeProgress, "step=upgrading\npercent=20\n");
  Write(paths::kDownloadProgress, "step=downloading\npercent=10\n");
  const UniqueFd held = Hold(paths::kPatchLock);
  keeper_.Keep(Record(UpdateState::kFinished, 100));
  ExpectFile("finished", "100");
  EXPECT_TRUE(fs::exists(paths::kDownloadProgress));
}

TEST_F(StateFileKeeperTest, LeavesThePatchLockFree) {
  Write(paths::kUpgradeProgress, "step=upgrading\npercent=20\n");
  keeper_.Keep(Record(UpdateState::kFinished, 100));
  EXPECT_TRUE(Hold(paths::kPatchLock));
}

}  // namespace
}  // namespace kalo::meshd
