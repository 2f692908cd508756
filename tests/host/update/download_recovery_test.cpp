#include "host/update/download/recovery.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "host/core/file_lock.h"
#include "host/core/key_value_file.h"
#include "host/update/download/left_files.h"
#include "platform/paths.h"

namespace kalo::download {
namespace {

namespace fs = std::filesystem;

class DownloadRecovery : public ::testing::Test {
 protected:
  DownloadRecovery() {
    fs::create_directories(KALO::paths::kFullStore);
    for (const char* path : {KALO::paths::kDownloadProgress, KALO::paths::kUpgradeProgress}) {
      fs::remove(path);
    }
  }
  static void Write(const char* path, const std::string& step) {
    std::ofstream(path) << "version=\"kept\"\nstep=\"" << step << "\"\npercent=\"40\"\n";
  }
  static std::string Get(const std::string& key) {
    const auto text = ReadKeyValueFile(KALO::paths::kDownloadProgress);
    return text ? text->Get(key).value_or("-") : "-";
  }
};

TEST_F(DownloadRecovery, EndsADownloadThatNobodyRuns) {
  Write(KALO::paths::kDownloadProgress, "downloading");
  std::ofstream("/volume1/@mesh_full/kalo_m1_76010.pat.part") << "half";
  std::ofstream("/volume1/@mesh_full/kalo_m2_76010.pat") << "whole";
  EXPECT_TRUE(RecoverDownload());
  EXPECT_EQ(Get("step"), "failed");
  EXPECT_EQ(Get("percent"), "0");
  EXPECT_EQ(Get("version"), "kept");
  EXPECT_FALSE(fs::exists("/volume1/@mesh_full/kalo_m1_76010.pat.part"));
  EXPECT_TRUE(fs::exists("/volume1/@mesh_full/kalo_m2_76010.pat"));
  EXPECT_FALSE(RecoverDownload());
}

TEST_F(DownloadRecovery, LeavesADownloadThatRuns) {
  Write(KALO::paths::kDownloadProgress, "downloading");
  const auto lock = FileLock::TryTake(KALO::paths::kPatchLock);
  ASSERT_TRUE(lock);
  EXPECT_FALSE(RecoverDownload());
  EXPECT_EQ(Get("step"), "downloading");
}

TEST_F(DownloadRecovery, FinishedWithoutTheNodesHavingTheirsIsHalfDone) {
  Write(KALO::paths::kDownloadProgress, "finished");
  for (const char* step : {"ready_upgrade", "upgrading"}) {
    Write(KALO::paths::kUpgradeProgress, step);
    EXPECT_FALSE(RecoverDownload()) << step;
  }
  Write(KALO::paths::kUpgradeProgress, "none");
  EXPECT_TRUE(RecoverDownload());
  EXPECT_EQ(Get("step"), "failed");
}

// A record that names two groups with the CAP counts a group that nobody fetches.
TEST_F(DownloadRecovery, ADownloadWhoseNodesAreReadyIsFinished) {
  for (const char* step : {"ready_upgrade", "upgrading"}) {
    Write(KALO::paths::kDownloadProgress, "downloading");
    Write(KALO::paths::kUpgradeProgress, step);
    EXPECT_TRUE(RecoverDownload()) << step;
    EXPECT_EQ(Get("step"), "finished");
    EXPECT_EQ(Get("percent"), "100");
    EXPECT_EQ(Get("version"), "kept");
  }
}

TEST_F(DownloadRecovery, FilesThatKilledProcessesLeftGoWhenTheyAreOld) {
  const fs::path folder = "/tmp/left";
  fs::remove_all(folder);
  fs::create_directories(folder / ".kalo-folder");
  for (const char* name : {".kalo-0a1b", "rss_v2_1.json", "rss_v2_1.txt", "mesh_download"}) {
    std::ofstream(folder / name) << "x";
    fs::last_write_time(folder / name, fs::file_time_type::clock::now() - 2 * kLeftFileAge);
  }
  fs::create_symlink("mesh_download", folder / ".kalo-link");
  std::ofstream(folder / ".kalo-young") << "x";
  SweepLeftFiles(folder);
  SweepLeftFiles("/tmp/none");
  for (const char* name : {".kalo-0a1b", "rss_v2_1.json"}) EXPECT_FALSE(fs::exists(folder / name));
  for (const char* name :
       {"rss_v2_1.txt", "mesh_download", ".kalo-link", ".kalo-young", ".kalo-folder"}) {
    EXPECT_TRUE(fs::exists(folder / name)) << name;
  }
}

TEST_F(DownloadRecovery, OtherWordsAreSomebodysLast) {
  EXPECT_FALSE(RecoverDownload()) << "no file";
  for (const char* step : {"failed", "canceled", "none", ""}) {
    Write(KALO::paths::kDownloadProgress, step);
    EXPECT_FALSE(RecoverDownload()) << step;
    EXPECT_EQ(Get("step"), step);
  }
}

}  // namespace
}  // namespace kalo::download
