#include "services/webapid/upload_store.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <fstream>
#include <iterator>

namespace kalo::webapid {
namespace {

namespace fs = std::filesystem;

constexpr const char* kFolder = "/volume1/@upload";

class UploadStoreTest : public testing::Test {
 protected:
  void SetUp() override { fs::remove_all(kFolder); }
};

TEST_F(UploadStoreTest, KeepsFilesAsLongAsTheFolderObject) {
  const UploadStore store(kFolder);
  ASSERT_TRUE(store.Prepare());
  fs::path file;
  {
    auto folder = store.MakeFolder();
    ASSERT_TRUE(folder);
    file = folder->StartFile().value();
    EXPECT_TRUE(folder->Append("one"));
    EXPECT_TRUE(folder->Append("two"));
    EXPECT_TRUE(folder->Close());
    std::ifstream stream(file);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), "onetwo");
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_NE(folder->StartFile().value(), file);
  }
  EXPECT_TRUE(fs::is_empty(kFolder));
}

TEST_F(UploadStoreTest, PreparingSweepsAndClosesThePlace) {
  fs::create_directories(fs::path(kFolder) / "old");
  std::ofstream(fs::path(kFolder) / "old" / "0") << "x";
  fs::permissions(kFolder, fs::perms::all);
  ASSERT_TRUE(UploadStore(kFolder).Prepare());
  EXPECT_TRUE(fs::is_empty(kFolder));
  EXPECT_EQ(fs::status(kFolder).permissions(), fs::perms::owner_all);
}

TEST_F(UploadStoreTest, ALinkInThePlaceIsNotFollowed) {
  fs::create_directories("/tmp/elsewhere");
  std::ofstream("/tmp/elsewhere/keep") << "x";
  fs::create_symlink("/tmp/elsewhere", kFolder);
  EXPECT_FALSE(UploadStore(kFolder).Prepare());
  EXPECT_TRUE(fs::exists("/tmp/elsewhere/keep"));
}

TEST_F(UploadStoreTest, AFullDiskIsAnErrorNotACut) {
  const UploadStore store(kFolder);
  ASSERT_TRUE(store.Prepare());
  auto folder = store.MakeFolder();
  ASSERT_TRUE(folder->StartFile());
  const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
  const rlimit small{4, RLIM_INFINITY};
  signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const bool appended = folder->Append("0123456789");
  EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &unlimited), 0);
  EXPECT_FALSE(appended);
}

}  // namespace
}  // namespace kalo::webapid
