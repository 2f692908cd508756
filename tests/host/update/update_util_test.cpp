#include "platform/update/update_util.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "host/core/unique_fd.h"
#include "platform/paths.h"
#include "tests/host/update/temporary_folder.h"
#include "tests/host/update/test_node.h"

namespace KALO::MESH::SDK::Upgrade {
namespace {

using kalo::test::TestNode;

class UpdateUtilTest : public ::testing::Test {
 protected:
  UpdateUtilTest() { authority_.Install(0); }

  [[nodiscard]] TestNode::Options At(const std::string& address, int id,
                                     const std::string& answer) const {
    TestNode::Options options;
    options.address = address;
    options.identity = authority_.Issue(id);
    options.authority = authority_.Certificate();
    options.answer = answer;
    return options;
  }

  static UpdateNode Node(int id, const std::string& address) {
    Client::NodeInfo info;
    info.address = address;
    return {id, info};
  }

  kalo::test::TestAuthority authority_;
};

TEST_F(UpdateUtilTest, EveryNodeIsCalledAndEachAnswerIsItsOwn) {
  const TestNode router(At("127.0.0.1", 0, R"({"success":true,"data":0})"));
  const TestNode refusing(At("127.0.0.2", 1, R"({"success":false,"error":{"code":5220}})"));
  const TestNode garbled(At("127.0.0.3", 2, "garbage"));
  const auto answers =
      UpdateUtil::SendWebAPIs({Node(0, "127.0.0.1"), Node(1, "127.0.0.2"), Node(2, "127.0.0.3"),
                               Node(3, "127.0.0.4"), Node(4, "no address")},
                              "KALO.Core.Upgrade.Patch", "clean", 1);
  ASSERT_EQ(answers.size(), 5U);
  EXPECT_TRUE(answers.at(0).IsSuccess());
  EXPECT_TRUE(answers.at(1).IsValid());
  EXPECT_EQ(answers.at(1).GetErrno(), 5220);
  EXPECT_FALSE(answers.at(2).IsValid());
  EXPECT_FALSE(answers.at(3).IsValid()) << "nobody listens";
  EXPECT_FALSE(answers.at(4).IsValid());
  EXPECT_EQ(router.LastRequest().path, "/webapi/KALO.Core.Upgrade.Patch/1/clean");
  EXPECT_EQ(router.LastRequest().body, "{}");
}

TEST_F(UpdateUtilTest, NodesThatHangAreWaitedForTogether) {
  const auto hanging = [&](const std::string& address, int id) {
    TestNode::Options options = At(address, id, "");
    options.behaviour = TestNode::Behaviour::kNoAnswer;
    return options;
  };
  const TestNode first(hanging("127.0.0.2", 1));
  const TestNode second(hanging("127.0.0.3", 2));
  const auto begin = std::chrono::steady_clock::now();
  const auto answers = UpdateUtil::SendWebAPIs({Node(1, "127.0.0.2"), Node(2, "127.0.0.3")},
                                               "KALO.Core.Upgrade.Patch", "clean", 1);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(18));
  EXPECT_FALSE(answers.at(1).IsValid());
  EXPECT_FALSE(answers.at(2).IsValid());
}

TEST_F(UpdateUtilTest, NoNodesGiveNoAnswers) {
  EXPECT_TRUE(UpdateUtil::SendWebAPIs({}, "A", "b", 1).empty());
}

TEST_F(UpdateUtilTest, WithoutCredentialsItThrows) {
  std::filesystem::remove(paths::kNodeKey);
  EXPECT_THROW((void)UpdateUtil::SendWebAPIs({Node(1, "127.0.0.1")}, "A", "b", 1), std::exception);
}

TEST(AutoUpdatingTest, IsTrueExactlyWhileTheLockIsHeld) {
  std::filesystem::create_directories("/run/kalo");
  std::filesystem::remove(paths::kAutoUpdateLock);
  EXPECT_FALSE(UpdateUtil::IsAutoUpdating()) << "no file";
  EXPECT_FALSE(std::filesystem::exists(paths::kAutoUpdateLock)) << "looking makes none";
  const kalo::UniqueFd lock(open(paths::kAutoUpdateLock, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  EXPECT_FALSE(UpdateUtil::IsAutoUpdating()) << "nobody holds it";
  ASSERT_EQ(flock(lock.Get(), LOCK_EX | LOCK_NB), 0);
  EXPECT_TRUE(UpdateUtil::IsAutoUpdating());
  ASSERT_EQ(flock(lock.Get(), LOCK_UN), 0);
  EXPECT_FALSE(UpdateUtil::IsAutoUpdating());
}

class JsonFile : public ::testing::Test {
 protected:
  bool Parse(const std::string& text) {
    std::ofstream(path_) << text;
    root_ = "stale";
    return UpdateUtil::ParseJsonRootFromFile(path_, root_);
  }
  kalo::test::TemporaryFolder folder_;
  std::string path_ = folder_.Path("file");
  Json::Value root_;
};

TEST_F(JsonFile, GivesTheDocument) {
  EXPECT_TRUE(Parse(R"({"patchPath": "/volume1/x"})"));
  EXPECT_EQ(root_["patchPath"], "/volume1/x");
}

TEST_F(JsonFile, AnythingElseIsNoDocumentAndNeverThrows) {
  const std::string deep(2000, '[');
  for (const std::string& text : {std::string(), std::string("{"), std::string("{} {}"), deep,
                                  std::string("\xff"), std::string(std::size_t{2} << 20, ' ')}) {
    EXPECT_FALSE(Parse(text));
    EXPECT_TRUE(root_.isNull());
  }
  std::filesystem::remove(path_);
  EXPECT_FALSE(UpdateUtil::ParseJsonRootFromFile(path_, root_)) << "missing";
  std::ofstream(folder_.Path("target")) << "{}";
  std::filesystem::create_symlink(folder_.Path("target"), path_);
  EXPECT_FALSE(UpdateUtil::ParseJsonRootFromFile(path_, root_)) << "a link";
}

TEST_F(JsonFile, AnotherUsersFileIsNoDocument) {
  std::ofstream(path_) << R"({"patchPath": "/volume1/x"})";
  if (chown(path_.c_str(), 1234, 1234) != 0) GTEST_SKIP() << "this root has one user only";
  EXPECT_FALSE(UpdateUtil::ParseJsonRootFromFile(path_, root_));
  EXPECT_TRUE(root_.isNull());
}

}  // namespace
}  // namespace KALO::MESH::SDK::Upgrade
