#include "platform/update/group_update.h"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <atomic>
#include <thread>

#include "host/core/file_lock.h"
#include "host/update/download/download_progress.h"
#include "host/update/download/fetch_patch.h"
#include "platform/core/key_value.h"
#include "platform/paths.h"
#include "platform/update/update_util.h"
#include "tests/host/update/feed/example_list.h"
#include "tests/host/update/feed/test_feed.h"
#include "tests/support/log_socket.h"
#include "tests/support/script_server.h"
#include "tests/support/wait.h"

namespace KALO::MESH::SDK::Upgrade {
namespace {

namespace fs = std::filesystem;
using kalo::download::DownloadError;
using kalo::download::FetchPatch;
using kalo::test::Contents;
using kalo::test::ScriptClient;
using kalo::test::ScriptServer;

constexpr const char* kStore = "/volume1/@mesh_full";
constexpr const char* kVersion = "VXM 1.4.0-76010";
constexpr const char* kFile = "/volume1/@mesh_full/kalo_m1_76010.pat";

std::string Key(const char* key) {
  std::array<char, 100> value{};
  (void)KLIBCFileGetKeyValue("/tmp/mesh_download", key, value.data(), value.size(), 0);
  return value.data();
}

// A feed with one patch of kalo_m1. Lists are answered as they lie there; the patch as a test says.
class DownloadTest : public ::testing::Test {
 protected:
  DownloadTest() {
    fs::remove_all(kStore);
    fs::create_directories(kStore);
    SetStep("downloading");
    feed_.PutList(kalo::feed::ExampleList({release_}));
    kalo::test::TestFeed::Configure(server_.Url());
  }

  static void SetStep(const char* step) {
    ASSERT_EQ(KLIBCFileSetKeyValue("/tmp/mesh_download", "step", step, 0), 1);
    ASSERT_EQ(KLIBCFileSetKeyValue("/tmp/mesh_download", "percent", "0", 0), 1);
    (void)KLIBCFileRemoveKey("/tmp/mesh_download", "need_bytes");
  }
  static std::vector<std::string> Stored() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(kStore)) names.push_back(entry.path());
    return names;
  }
  [[nodiscard]] bool Download(int total = 1) {
    update_.AppendTarget("kalo_m1", kVersion);
    update_.SetJobStatus(total, 0, 0, 0);
    return update_.Download(kStore, false, false);
  }

  // @return the cause of a failure when only the transfer is tried; "" when it succeeds.
  std::optional<DownloadError::Cause> Fetch() const {
    kalo::download::FetchPatience patience;
    patience.connect = std::chrono::seconds(2);
    patience.stall = std::chrono::milliseconds(400);
    patience.slowest = 1000;
    patience.whole_extra = std::chrono::seconds(5);
    patience.first_pause = std::chrono::milliseconds(20);
    const kalo::download::TransferHooks hooks{[] { return false; },
                                              [](std::uint64_t, std::uint64_t) {}};
    try {
      FetchPatch("kalo_m1", release_, kFile, hooks, patience);
      return std::nullopt;
    } catch (const DownloadError& e) {
      EXPECT_TRUE(Stored().empty()) << "half a file stays";
      return e.GetCause();
    }
  }
  [[nodiscard]] std::size_t PatchRequests() const {
    const auto requests = server_.Requests();
    return static_cast<std::size_t>(
        std::count_if(requests.begin(), requests.end(),
                      [](const std::string& r) { return r.starts_with("GET /patches/"); }));
  }
  [[nodiscard]] std::string Whole(const std::string& headers = "ETag: \"a\"\r\n") const {
    return ScriptServer::Answer("200 OK", bytes_, headers);
  }

  kalo::test::LogSocket log_;
  kalo::test::TestFeed feed_;
  std::string bytes_ = feed_.MakePatch("kalo_m1", kVersion, 76010);
  kalo::feed::Release release_ = kalo::test::TestFeed::Describe(kVersion, 76010, 0, bytes_);
  std::atomic<int> tries_ = 0;
  std::atomic<int> foreign_signatures_ = 0;
  std::function<void(const ScriptClient&, int)> patch_ = [this](const ScriptClient& c, int) {
    c.Send(Whole());
  };
  ScriptServer server_{[this](const ScriptClient& c) {
    const std::string path = c.Request().substr(4, c.Request().find(' ', 4) - 4);
    if (path.starts_with("/patches/")) return patch_(c, ++tries_);
    const bool is_foreign = path.ends_with(".sig") && foreign_signatures_-- > 0;
    c.Send(ScriptServer::Answer("200 OK",
                                is_foreign ? std::string(64, 's') : Contents(feed_.Root() + path)));
  }};
  GroupUpdate update_;
};

// Between the replacement of a list and that of its signature one asks in vain.
TEST_F(DownloadTest, AListThatIsJustBeingReplacedIsFetchedOnceMore) {
  foreign_signatures_ = 1;
  EXPECT_TRUE(Download());
  foreign_signatures_ = 2;
  EXPECT_FALSE(Download());
}

TEST_F(DownloadTest, APatchIsFetchedUnderTheNameOfModelAndVersion) {
  EXPECT_TRUE(Download());
  EXPECT_EQ(Stored(), std::vector<std::string>{kFile});
  EXPECT_EQ(Contents(kFile), bytes_);
  EXPECT_EQ(fs::status(kFile).permissions(), static_cast<fs::perms>(0600));
  EXPECT_EQ(Key("step"), "finished");
  EXPECT_EQ(Key("percent"), "100");
  std::string path;
  EXPECT_TRUE(update_.GetPatchPath("kalo_m1", "76010", path));
  EXPECT_EQ(path, kFile);
  EXPECT_FALSE(update_.GetPatchPath("kalo_m2", "76010", path));
  EXPECT_TRUE(update_.PatchClean(kStore));
  EXPECT_TRUE(Stored().empty());
}

TEST_F(DownloadTest, ThePercentageSpansAllGroupsAndNeverFalls) {
  EXPECT_TRUE(Download(4));
  EXPECT_EQ(Key("step"), "downloading");
  EXPECT_EQ(Key("percent"), "25");
  std::int32_t total = 0;
  std::int32_t done = 0;
  std::int32_t mib = 0;
  std::int32_t percent = 0;
  update_.GetJobStatus(total, done, mib, percent);
  EXPECT_EQ(total, 4);
  EXPECT_EQ(done, 1);
  EXPECT_EQ(percent, 25);
}

TEST_F(DownloadTest, VersionsHaveAPureForm) {
  std::string pure = "untouched";
  EXPECT_TRUE(update_.ConvertVersion("VXM 1.4.0-76010", pure));
  EXPECT_EQ(pure, "76010");
  EXPECT_TRUE(update_.ConvertVersion("VXM 1.3.1-9346 Update 2", pure));
  EXPECT_EQ(pure, "9346-2");
  EXPECT_TRUE(update_.ConvertVersion("VXM 1.3.1-9346 Update 0", pure));
  EXPECT_EQ(pure, "9346-0");
  EXPECT_TRUE(update_.ConvertVersion("76010-3", pure));
  EXPECT_EQ(pure, "76010-3") << "it is its own pure form";
  EXPECT_FALSE(update_.ConvertVersion("VXM 1.3.1 Update 4", pure));
  EXPECT_EQ(pure, "76010-3");
}

TEST_F(DownloadTest, WhatTheListDoesNotHaveIsNotDownloaded) {
  update_.AppendTarget("kalo_m1", "VXM 1.4.0-76010 Update 1");
  EXPECT_FALSE(update_.Download(kStore, false, false));
  EXPECT_TRUE(log_.WaitFor("is not in the maker's list"));
  EXPECT_EQ(Key("step"), "downloading") << "the failure is the caller's to write";
}

// Whoever wrote the record: what the maker has not released to this router is not fetched.
TEST_F(DownloadTest, WhatTheListDoesNotReleaseToThisRouterIsNotDownloaded) {
  ASSERT_EQ(KLIBCINFOSetKeyValue("rolling_group_id", "1237"), 1);
  release_.groups = "0";
  feed_.PutList(kalo::feed::ExampleList({release_}));
  EXPECT_FALSE(Download());
  EXPECT_TRUE(log_.WaitFor("is not released for this router"));
  release_.groups = kalo::feed::kAllGroups;
  release_.phase = kalo::feed::kBeta;
  feed_.PutList(kalo::feed::ExampleList({release_}));
  {
    const auto automatic = kalo::FileLock::TryTake(paths::kAutoUpdateLock);
    ASSERT_TRUE(automatic);
    EXPECT_FALSE(Download());
  }
  EXPECT_EQ(PatchRequests(), 0U);
  EXPECT_TRUE(Download()) << "by hand";
}

TEST_F(DownloadTest, NothingIsFetchedWhenItIsNotWanted) {
  for (const char* step : {"canceled", "failed", "finished", "none"}) {
    SetStep(step);
    GroupUpdate update;
    update.AppendTarget("kalo_m1", kVersion);
    update.SetJobStatus(1, 0, 0, 0);
    EXPECT_FALSE(update.Download(kStore, false, false)) << step;
    EXPECT_EQ(Key("step"), step);
  }
  EXPECT_EQ(PatchRequests(), 0U);
}

TEST_F(DownloadTest, ACancelEndsARunningTransferWithinASecond) {
  patch_ = [this](const ScriptClient& c, int) {
    c.Send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(bytes_.size()) + "\r\n\r\nx");
    c.WaitForEnd();
  };
  std::thread canceller([this] {
    EXPECT_TRUE(kalo::test::WaitFor([this] { return tries_ == 1; }));
    EXPECT_TRUE(GroupUpdate().CancelDownload());
  });
  EXPECT_FALSE(Download());
  canceller.join();
  EXPECT_EQ(Key("step"), "canceled");
  EXPECT_EQ(Key("percent"), "0");
  EXPECT_TRUE(Stored().empty());
}

TEST_F(DownloadTest, ACancelEndsTheFetchOfAList) {
  std::atomic<int> asked = 0;
  const ScriptServer hanging([&asked](const ScriptClient& c) {
    ++asked;
    c.WaitForEnd();
  });
  kalo::test::TestFeed::Configure(hanging.Url());
  std::thread canceller([&asked] {
    EXPECT_TRUE(kalo::test::WaitFor([&asked] { return asked == 1; }));
    EXPECT_TRUE(GroupUpdate().CancelDownload());
  });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(Download());
  canceller.join();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kalo::test::kLongWait / 2);
  EXPECT_EQ(asked, 1) << "it is not asked again";
  EXPECT_EQ(Key("step"), "canceled");
}

// The last byte is there, and the file goes to the disk.
TEST_F(DownloadTest, ACancelWhileTheFileIsWrittenToTheDiskIsNotLost) {
  bool is_cancelled = false;
  const kalo::download::TransferHooks hooks{
      [&] { return is_cancelled; },
      [&](std::uint64_t bytes, std::uint64_t whole) { is_cancelled = bytes == whole; }};
  try {
    FetchPatch("kalo_m1", release_, kFile, hooks);
    ADD_FAILURE() << "it ended as if nothing was cancelled";
  } catch (const DownloadError& e) {
    EXPECT_EQ(e.GetCause(), DownloadError::Cause::kCancelled);
  }
  EXPECT_TRUE(Stored().empty());
}

TEST_F(DownloadTest, ACancelBeforeTheClosingWriteFailsTheDownload) {
  SetStep("canceled");
  EXPECT_FALSE(kalo::download::DownloadProgress().Finish());
  EXPECT_EQ(Key("step"), "canceled");
  SetStep("downloading");
  EXPECT_TRUE(kalo::download::DownloadProgress().Finish());
  EXPECT_EQ(Key("step"), "finished");
  // With nothing to fetch, the closing write is all there is.
  SetStep("canceled");
  GroupUpdate update;
  update.SetJobStatus(1, 1, 0, 100);
  EXPECT_FALSE(update.Download(kStore, false, false));
}

// Two groups that claim the CAP count as two, and only the last of them is fetched.
TEST_F(DownloadTest, AJobThatSkippedAGroupEndsWithFinished) {
  EXPECT_TRUE(Download(2));
  EXPECT_EQ(Key("step"), "downloading");
  UpdateUtil::SendNotification(false, false, kVersion);
  EXPECT_EQ(Key("step"), "downloading") << "the last word of a failure is the job's own";
  UpdateUtil::SendNotification(true, false, kVersion);
  EXPECT_EQ(Key("step"), "finished");
  EXPECT_EQ(Key("percent"), "100");
  SetStep("canceled");
  UpdateUtil::SendNotification(true, false, kVersion);
  EXPECT_EQ(Key("step"), "canceled");
}

TEST_F(DownloadTest, ACancelWithoutADownloadSucceedsAndWritesNothing) {
  SetStep("finished");
  EXPECT_TRUE(GroupUpdate().CancelDownload());
  EXPECT_EQ(Key("step"), "finished");
  fs::remove("/tmp/mesh_download");
  EXPECT_TRUE(GroupUpdate().CancelDownload());
  EXPECT_FALSE(fs::exists("/tmp/mesh_download"));
}

TEST_F(DownloadTest, ABrokenTransferGoesOnWhereItBroke) {
  const std::size_t half = bytes_.size() / 2;
  patch_ = [this, half](const ScriptClient& c, int attempt) {
    if (attempt == 1) {
      c.Send("HTTP/1.1 200 OK\r\nETag: \"a\"\r\nContent-Length: " + std::to_string(bytes_.size()) +
             "\r\n\r\n" + bytes_.substr(0, half));
      return;
    }
    EXPECT_NE(c.Request().find("Range: bytes=" + std::to_string(half) + "-\r\n"),
              std::string::npos);
    EXPECT_NE(c.Request().find("If-Range: \"a\"\r\n"), std::string::npos);
    c.Send(ScriptServer::Answer("206 Partial Content", bytes_.substr(half), "ETag: \"a\"\r\n"));
  };
  EXPECT_EQ(Fetch(), std::nullopt);
  EXPECT_EQ(Contents(kFile), bytes_);
  EXPECT_EQ(PatchRequests(), 2U);
}

TEST_F(DownloadTest, AServerThatIgnoresTheRangeIsTakenFromTheBegin) {
  patch_ = [this](const ScriptClient& c, int attempt) {
    if (attempt > 1) return void(c.Send(Whole("ETag: \"b\"\r\n")));
    c.Send("HTTP/1.1 200 OK\r\nETag: \"a\"\r\nContent-Length: " + std::to_string(bytes_.size()) +
           "\r\n\r\n" + std::string(1000, '?'));
  };
  EXPECT_EQ(Fetch(), std::nullopt);
  EXPECT_EQ(Contents(kFile), bytes_);
}

TEST_F(DownloadTest, ARestOfSomethingElseIsDroppedAndAllIsFetchedAnew) {
  const std::size_t half = bytes_.size() / 2;
  patch_ = [this, half](const ScriptClient& c, int attempt) {
    if (attempt > 2) return void(c.Send(Whole()));
    if (attempt == 2) {
      return void(c.Send(ScriptServer::Answer("206 Partial Content", bytes_.substr(half), "")));
    }
    c.Send("HTTP/1.1 200 OK\r\nETag: \"a\"\r\nContent-Length: " + std::to_string(bytes_.size()) +
           "\r\n\r\n" + bytes_.substr(0, half));
  };
  EXPECT_EQ(Fetch(), std::nullopt);
  EXPECT_EQ(Contents(kFile), bytes_);
  EXPECT_EQ(PatchRequests(), 3U);
}

TEST_F(DownloadTest, WithoutATagARestIsNotAskedFor) {
  patch_ = [this](const ScriptClient& c, int attempt) {
    EXPECT_EQ(c.Request().find("Range:"), std::string::npos);
    if (attempt > 1) return void(c.Send(Whole("")));
    c.Send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(bytes_.size()) + "\r\n\r\nhalf");
  };
  EXPECT_EQ(Fetch(), std::nullopt);
}

TEST_F(DownloadTest, StalePartsAreDropped) {
  std::ofstream(std::string(kFile) + ".part") << "stale";
  EXPECT_EQ(Fetch(), std::nullopt);
  EXPECT_EQ(Contents(kFile), bytes_);
}

TEST_F(DownloadTest, WrongContentsAreNeverKept) {
  const auto send = [this](const std::string& body) {
    patch_ = [body](const ScriptClient& c, int) {
      c.Send(ScriptServer::Answer("200 OK", body, "ETag: \"a\"\r\n"));
    };
  };
  std::string changed = bytes_;
  changed[changed.size() / 2] ^= 1;
  send(changed);
  EXPECT_EQ(Fetch(), DownloadError::Cause::kContents) << "one bit";
  send(bytes_.substr(1));
  EXPECT_EQ(Fetch(), DownloadError::Cause::kContents) << "shorter";
  send(bytes_ + "x");
  EXPECT_EQ(Fetch(), DownloadError::Cause::kContents) << "longer";
  send("");
  EXPECT_EQ(Fetch(), DownloadError::Cause::kContents) << "empty";
}

TEST_F(DownloadTest, APatchMustBeWhatTheListSaysItIs) {
  const kalo::patch::SigningKey other = kalo::patch::SigningKey::Generate();
  const std::vector<std::string> wrong = {feed_.MakePatch("kalo_m2", kVersion, 76010),
                                          feed_.MakePatch("kalo_m1", "VXM 1.4.0-76011", 76011),
                                          feed_.MakePatch("kalo_m1", kVersion, 76010, 0, &other),
                                          std::string(5000, 'x')};
  for (const std::string& bytes : wrong) {
    bytes_ = bytes;
    release_ = kalo::test::TestFeed::Describe(kVersion, 76010, 0, bytes);
    EXPECT_EQ(Fetch(), DownloadError::Cause::kContents);
  }
}

TEST_F(DownloadTest, ABadServerIsGivenUpAfterThreeTries) {
  patch_ = [](const ScriptClient& c, int) { c.Send(ScriptServer::Answer("503 Busy", "x")); };
  EXPECT_EQ(Fetch(), DownloadError::Cause::kServer);
  EXPECT_EQ(PatchRequests(), 3U);
  patch_ = [](const ScriptClient& c, int) { c.WaitForEnd(); };
  EXPECT_EQ(Fetch(), DownloadError::Cause::kServer);
  EXPECT_EQ(PatchRequests(), 6U);
  patch_ = [](const ScriptClient& c, int) { c.Send(ScriptServer::Answer("404 None", "x")); };
  EXPECT_EQ(Fetch(), DownloadError::Cause::kServer);
  EXPECT_EQ(PatchRequests(), 7U) << "what is not there will not be there in a second";
}

TEST_F(DownloadTest, AServerThatRecoversIsEnough) {
  patch_ = [this](const ScriptClient& c, int attempt) {
    c.Send(attempt < 3 ? ScriptServer::Answer("500 Bad", "") : Whole());
  };
  EXPECT_EQ(Fetch(), std::nullopt);
}

// A store too small for the patch, by tenths of it.
TEST_F(DownloadTest, TooLittleSpaceIsToldInBytesAndLeavesNothing) {
  for (int tenths = 0; tenths < 10; ++tenths) {
    const std::size_t size =
        std::max<std::size_t>(bytes_.size() * static_cast<std::size_t>(tenths) / 10, 4096);
    ASSERT_EQ(mount("tmpfs", kStore, "tmpfs", 0, ("size=" + std::to_string(size)).c_str()), 0);
    SetStep("downloading");
    GroupUpdate update;
    update.AppendTarget("kalo_m1", kVersion);
    update.SetJobStatus(1, 0, 0, 0);
    EXPECT_FALSE(update.Download(kStore, false, false)) << tenths;
    EXPECT_EQ(Key("need_bytes"), std::to_string(bytes_.size() + (1 << 20))) << tenths;
    EXPECT_EQ(Fetch(), DownloadError::Cause::kNoSpace) << tenths << ": found while writing";
    ASSERT_EQ(umount(kStore), 0);
  }
}

}  // namespace
}  // namespace KALO::MESH::SDK::Upgrade
