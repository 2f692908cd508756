#include "host/update/node_client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "host/core/unique_fd.h"
#include "host/update/patch_format/sha256.h"
#include "host/update/verified_hash.h"
#include "platform/paths.h"
#include "platform/update/credentials.h"
#include "platform/update/update_node.h"
#include "tests/host/update/temporary_folder.h"
#include "tests/host/update/test_node.h"
#include "tests/support/wait.h"

namespace kalo {
namespace {

using KALO::MESH::SDK::Response;
using test::TestNode;
using Behaviour = test::TestNode::Behaviour;
using std::chrono::milliseconds;

constexpr milliseconds kLong{10000};
constexpr milliseconds kShort{400};

class NodeClientTest : public ::testing::Test {
 protected:
  NodeClientTest() { authority_.Install(0); }

  [[nodiscard]] TestNode::Options Node(int id) const {
    TestNode::Options options;
    options.identity = authority_.Issue(id);
    options.authority = authority_.Certificate();
    return options;
  }

  static Response Call(int id, milliseconds deadline = kLong,
                       const std::string& address = "127.0.0.1") {
    NodeClient client;
    Json::Value params(Json::objectValue);
    params["word"] = "value";
    return client.Call({id, address}, "KALO.Core.Upgrade", 1, "info", params, deadline);
  }

  Response Upload(const std::string& contents, const UploadLimits& limits = {}) {
    NodeClient client(limits);
    Json::Value params(Json::objectValue);
    params["base_ver_num"] = "76000";
    params["number"] = 7;
    const std::string path = folder_.Write("kalo_x1_new.patch", contents);
    return client.Upload({1, "127.0.0.1"}, "KALO.Core.Upgrade.Patch", 1, "upload", params, path);
  }

  test::TestAuthority authority_;
  test::TemporaryFolder folder_;
};

TEST_F(NodeClientTest, ANodesAnswerComesBack) {
  TestNode::Options options = Node(1);
  options.answer = R"({"success":true,"data":{"build":76010}})";
  const TestNode node(options);
  const Response response = Call(1);
  Json::Value data;
  EXPECT_TRUE(response.IsSuccess());
  ASSERT_TRUE(response.GetData(data));
  EXPECT_EQ(data["build"], 76010);
  const TestNode::Request request = node.LastRequest();
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.path, "/webapi/KALO.Core.Upgrade/1/info");
  EXPECT_EQ(request.body, R"({"word":"value"})");
  EXPECT_EQ(request.headers.at("content-type"), "application/json");
  EXPECT_FALSE(request.headers.contains("expect"));
  EXPECT_TRUE(request.has_client_certificate);
}

TEST_F(NodeClientTest, AnErrorEnvelopeIsAnAnswerWhateverTheStatus) {
  TestNode::Options options = Node(1);
  options.answer = R"({"success":false,"error":{"code":7006,"message":"not allowed"}})";
  options.status = MHD_HTTP_FORBIDDEN;
  const TestNode node(options);
  const Response response = Call(1);
  EXPECT_TRUE(response.IsValid());
  EXPECT_EQ(response.GetErrno(), 7006);
}

TEST_F(NodeClientTest, ACertificateOfAnotherNodeIsRefused) {
  const TestNode node(Node(2));
  EXPECT_THROW((void)Call(1), NodeUnreachable);
  EXPECT_EQ(node.Requests(), 0);
}

TEST_F(NodeClientTest, ACertificateOfAForeignAuthorityIsRefused) {
  const test::TestAuthority foreign;
  TestNode::Options options = Node(1);
  options.identity = foreign.Issue(1);
  const TestNode node(options);
  EXPECT_THROW((void)Call(1), NodeUnreachable);
  EXPECT_EQ(node.Requests(), 0);
}

TEST_F(NodeClientTest, GarbageIsNoValidAnswer) {
  for (const char* answer : {"", "garbage", "{\"success\":true", "{}", "[]", "null",
                             R"({"success":true}{"success":true})"}) {
    TestNode::Options options = Node(1);
    options.answer = answer;
    const TestNode node(options);
    EXPECT_FALSE(Call(1).IsValid()) << answer;
  }
}

TEST_F(NodeClientTest, DeepNestingIsNoValidAnswer) {
  TestNode::Options options = Node(1);
  options.answer = std::string(100000, '[');
  const TestNode node(options);
  EXPECT_FALSE(Call(1).IsValid());
}

TEST_F(NodeClientTest, AnAnswerAboveTheLimitIsNotValid) {
  TestNode::Options options = Node(1);
  options.answer = R"({"success":true,"data":")" + std::string(2UL * 1024 * 1024, 'x') + "\"}";
  const TestNode node(options);
  EXPECT_FALSE(Call(1).IsValid());
}

TEST_F(NodeClientTest, HalfAnAnswerIsNone) {
  TestNode::Options options = Node(1);
  options.behaviour = Behaviour::kHalfAnswer;
  const TestNode node(options);
  EXPECT_THROW((void)Call(1), NodeUnreachable);
}

TEST_F(NodeClientTest, ANodeThatNeverAnswersIsLeftAtTheDeadline) {
  TestNode::Options options = Node(1);
  options.behaviour = Behaviour::kNoAnswer;
  const TestNode node(options);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_THROW((void)Call(1, kShort), NodeUnreachable);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kLong / 2);
}

TEST_F(NodeClientTest, AListenerThatNeverShakesHandsIsLeftAtTheDeadline) {
  const UniqueFd listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(8443);
  inet_pton(AF_INET, "127.0.0.7", &address.sin_addr);
  ASSERT_EQ(bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener.Get(), 1), 0);
  EXPECT_THROW((void)Call(1, kShort, "127.0.0.7"), NodeUnreachable);
}

TEST_F(NodeClientTest, NobodyListeningIsUnreachable) {
  EXPECT_THROW((void)Call(1), NodeUnreachable);
}

TEST_F(NodeClientTest, WhatIsNoAddressIsUnreachableAndNeverLookedUp) {
  for (const char* address : {"", "localhost", "127.0.0.1,10.0.0.1", "127.0.0.1:80", "node1"}) {
    EXPECT_THROW((void)Call(1, kLong, address), NodeUnreachable) << address;
  }
}

TEST_F(NodeClientTest, ARedirectIsNotFollowed) {
  TestNode::Options other = Node(1);
  other.address = "127.0.0.2";
  const TestNode elsewhere(other);
  TestNode::Options options = Node(1);
  options.status = MHD_HTTP_TEMPORARY_REDIRECT;
  options.location = "https://127.0.0.2:8443/webapi/x/1/y";
  options.answer = "";
  const TestNode node(options);
  EXPECT_FALSE(Call(1).IsValid());
  EXPECT_EQ(elsewhere.Requests(), 0);
}

TEST_F(NodeClientTest, ACallAfterAFailedOneWorks) {
  NodeClient client;
  const Json::Value none(Json::objectValue);
  EXPECT_THROW((void)client.Call({1, "127.0.0.1"}, "A", 1, "b", none, kLong), NodeUnreachable);
  const TestNode node(Node(1));
  EXPECT_TRUE(client.Call({1, "127.0.0.1"}, "A", 1, "b", none, kLong).IsSuccess());
  EXPECT_TRUE(client.Call({1, "127.0.0.1"}, "A", 1, "b", none, kLong).IsSuccess());
  EXPECT_EQ(node.Requests(), 2);
}

TEST_F(NodeClientTest, AKeptConnectionToOneNodeIsNotUsedForAnother) {
  const TestNode node(Node(1));
  NodeClient client;
  const Json::Value none(Json::objectValue);
  EXPECT_TRUE(client.Call({1, "127.0.0.1"}, "A", 1, "b", none, kLong).IsSuccess());
  EXPECT_THROW((void)client.Call({2, "127.0.0.1"}, "A", 1, "b", none, kLong), NodeUnreachable);
  EXPECT_EQ(node.Requests(), 1);
}

TEST_F(NodeClientTest, AnUploadCarriesFileAndFields) {
  const TestNode node(Node(1));
  std::string contents(700000, 'p');
  contents += std::string("\0end", 4);
  EXPECT_TRUE(Upload(contents).IsSuccess());
  const TestNode::Request request = node.LastRequest();
  EXPECT_EQ(request.path, "/webapi/KALO.Core.Upgrade.Patch/1/upload");
  EXPECT_TRUE(request.headers.at("content-type").starts_with("multipart/form-data; boundary="));
  EXPECT_FALSE(request.headers.contains("expect"));
  EXPECT_NE(request.body.find("name=\"patch_file\"; filename=\"kalo_x1_new.patch\""),
            std::string::npos);
  EXPECT_NE(request.body.find("name=\"base_ver_num\"\r\n\r\n76000\r\n"), std::string::npos);
  EXPECT_NE(request.body.find("name=\"number\"\r\n\r\n7\r\n"), std::string::npos);
  EXPECT_NE(request.body.find("\r\n\r\n" + contents + "\r\n"), std::string::npos);
}

TEST_F(NodeClientTest, AnUploadThatNobodyTakesEnds) {
  TestNode::Options options = Node(1);
  options.behaviour = Behaviour::kTakesNothing;
  const TestNode node(options);
  EXPECT_THROW((void)Upload(std::string(32UL * 1024 * 1024, 'p'), {kLong * 6, kShort}),
               NodeUnreachable);
}

TEST_F(NodeClientTest, AnUploadThatIsNotWantedAnyMoreEnds) {
  TestNode::Options options = Node(1);
  options.behaviour = Behaviour::kTakesNothing;
  const TestNode node(options);
  const auto begun = std::chrono::steady_clock::now();
  const auto is_cancelled = [begun] { return std::chrono::steady_clock::now() - begun >= kShort; };
  EXPECT_THROW((void)Upload(std::string(32UL * 1024 * 1024, 'p'), {kLong, kLong, is_cancelled}),
               NodeUnreachable);
  EXPECT_LT(std::chrono::steady_clock::now() - begun, kLong);
}

// The download's child knows only the progress file, and an upload by hand must not mind it.
TEST_F(NodeClientTest, ACancelledDownloadEndsItsUploadsAndNoOthers) {
  const auto say = [](const std::string& text) {
    std::ofstream(KALO::paths::kDownloadProgress) << text;
  };
  TestNode::Options options = Node(0);
  const KALO::MESH::SDK::Upgrade::Node target(0, "127.0.0.1");
  const std::string path = folder_.Write("p", std::string(32UL * 1024 * 1024, 'p'));
  options.behaviour = Behaviour::kTakesNothing;
  {
    const TestNode node(options);
    say("step=\"downloading\"\nversion=\"VXM 1.4.0-76010\"\n");
    std::jthread canceller([&say] {
      EXPECT_TRUE(
          test::WaitFor([] { return std::filesystem::exists("/run/kalo/transfers/node-0"); }));
      say("step=\"canceled\"\nversion=\"VXM 1.4.0-76010\"\n");
    });
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_THROW((void)target.Upload("A", "b", 1, Json::objectValue, path), NodeUnreachable);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, kLong) << "the stall limit is longer";
  }
  say("step=\"canceled\"\n");
  const TestNode node(Node(0));
  EXPECT_TRUE(target.Upload("A", "b", 1, Json::objectValue, path).IsSuccess());
  std::filesystem::remove(KALO::paths::kDownloadProgress);
}

// It keeps what it has got whole: who takes it back must know that it is through with it.
TEST_F(NodeClientTest, TheAnswerToAWholeUploadIsWaitedForAllTheSame) {
  TestNode::Options options = Node(1);
  options.behaviour = Behaviour::kSlowAnswer;
  options.pause = 5 * kShort;
  const TestNode node(options);
  const auto begun = std::chrono::steady_clock::now();
  const auto is_cancelled = [begun] { return std::chrono::steady_clock::now() - begun >= kShort; };
  EXPECT_TRUE(Upload("short", {kLong, kLong, is_cancelled}).IsSuccess());
}

TEST_F(NodeClientTest, ANodeMayTakeItsTimeToCheckWhatItHasGot) {
  TestNode::Options options = Node(1);
  options.behaviour = Behaviour::kSlowAnswer;
  options.pause = 5 * kShort;
  const TestNode node(options);
  EXPECT_TRUE(Upload("short", {kLong, kShort}).IsSuccess());
}

TEST_F(NodeClientTest, AnUploadEndsAtItsWholeLimit) {
  TestNode::Options options = Node(1);
  options.behaviour = Behaviour::kNoAnswer;
  const TestNode node(options);
  EXPECT_THROW((void)Upload("short", {kShort, kLong}), NodeUnreachable);
}

TEST_F(NodeClientTest, AFileThatCannotBeReadIsNotSent) {
  const TestNode node(Node(1));
  NodeClient client;
  const Json::Value none(Json::objectValue);
  for (const std::string& path : {folder_.Path("missing"), folder_.Path("")}) {
    EXPECT_THROW((void)client.Upload({1, "127.0.0.1"}, "A", 1, "b", none, path),
                 std::runtime_error);
  }
  EXPECT_EQ(node.Requests(), 0);
}

// The transfer must not go to its end with contents that nobody has verified.
TEST_F(NodeClientTest, AFileThatChangedSinceItWasVerifiedIsNotSentToItsEnd) {
  const TestNode node(Node(1));
  const std::string contents(3000000, 'p');
  const std::string path = folder_.Write("kalo_x1_76010.pat", contents);
  patch::Sha256 hash;
  hash.Update(contents);
  UniqueFd fd(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  if (!NoteVerifiedHash(fd.Get(), hash.Finish())) GTEST_SKIP() << "no attributes here";
  const Json::Value none(Json::objectValue);
  NodeClient client;
  EXPECT_TRUE(client.Upload({1, "127.0.0.1"}, "A", 1, "b", none, path).IsSuccess());
  EXPECT_TRUE(node.LastRequest().body.ends_with("--\r\n"));
  ASSERT_EQ(::pwrite(fd.Get(), "q", 1, 1500000), 1);
  try {
    (void)client.Upload({1, "127.0.0.1"}, "A", 1, "b", none, path);
    ADD_FAILURE() << "it was sent";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()), path + " is not what was verified");
  }
  EXPECT_FALSE(node.LastRequest().body.ends_with("--\r\n")) << "the request came whole";
}

TEST_F(NodeClientTest, ThePlatformsNodeUploads) {
  const TestNode node(Node(3));
  const KALO::MESH::SDK::Upgrade::Node target(3, "127.0.0.1");
  EXPECT_TRUE(
      target.Upload("A", "b", 2, Json::Value(Json::objectValue), folder_.Write("f", "contents"))
          .IsSuccess());
  EXPECT_EQ(node.LastRequest().path, "/webapi/A/2/b");
}

TEST_F(NodeClientTest, MissingOrMixedUpCredentialsAreSaidEarly) {
  using KALO::MESH::SDK::Webapi::KaloCredInit;
  EXPECT_EQ(KaloCredInit(true), 0);
  std::ofstream(KALO::paths::kNodeKey) << authority_.Issue(5).key;
  EXPECT_NE(KaloCredInit(true), 0) << "a key of another certificate";
  EXPECT_THROW(NodeClient(), std::runtime_error);
  authority_.Install(0);
  std::ofstream(KALO::paths::kMeshAuthority) << "nothing";
  EXPECT_NE(KaloCredInit(true), 0);
  authority_.Install(0);
  std::filesystem::remove(KALO::paths::kNodeCertificate);
  EXPECT_NE(KaloCredInit(true), 0);
}

}  // namespace
}  // namespace kalo
