#include "services/feedd/feed_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace kalo::feedd {
namespace {

namespace fs = std::filesystem;

class FeedFileTest : public testing::Test {
 protected:
  void SetUp() override {
    fs::remove_all(top_);
    fs::create_directories(top_ / "feed/v1/model");
    std::ofstream(top_ / "feed/v1/model/list.json") << "list";
    std::ofstream(top_ / "secret") << "secret";
    feed_ = UniqueFd(open((top_ / "feed").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(feed_);
  }
  void TearDown() override { fs::remove_all(top_); }

  [[nodiscard]] bool Opens(const std::string& path) const {
    return FeedFile::Open(feed_.Get(), path).has_value();
  }

  const fs::path top_ = fs::path(testing::TempDir()) / "kalo-feed-file-test";
  UniqueFd feed_;
};

TEST_F(FeedFileTest, OpensWhatLiesBelowTheFolder) {
  const auto file = FeedFile::Open(feed_.Get(), "v1/model/list.json");
  ASSERT_TRUE(file);
  EXPECT_EQ(file->size, 4U);
}

TEST_F(FeedFileTest, IsNoFolderAndNothingThatIsNotThere) {
  for (const char* path : {"", "v1", "v1/model", "v1/model/", "v1/other/list.json"}) {
    EXPECT_FALSE(Opens(path)) << path;
  }
}

TEST_F(FeedFileTest, NeverLeavesTheFolder) {
  EXPECT_FALSE(Opens("../secret"));
  EXPECT_FALSE(Opens("v1/../../secret"));
  EXPECT_FALSE(Opens(std::string("..\0/secret", 10)));
  EXPECT_FALSE(Opens(std::string("v1/model/list.json\0", 19)));
  EXPECT_FALSE(Opens((top_ / "secret").string()));
}

TEST_F(FeedFileTest, FollowsNoLinkAnywhereInThePath) {
  fs::create_directory_symlink(top_, top_ / "feed/v1/up");
  fs::create_directory_symlink("model", top_ / "feed/v1/same");
  fs::create_symlink("list.json", top_ / "feed/v1/model/link.json");
  EXPECT_FALSE(Opens("v1/up/secret"));
  EXPECT_FALSE(Opens("v1/same/list.json"));
  EXPECT_FALSE(Opens("v1/model/link.json"));
}

}  // namespace
}  // namespace kalo::feedd
