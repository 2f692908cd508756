#include "platform/mesh/client.h"

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <tuple>

#include "host/core/unique_fd.h"
#include "host/mesh/mesh_details.h"
#include "host/mesh/wire.h"
#include "tests/host/mesh/private_bus.h"

namespace KALO::MESH::SDK::Client {
namespace {

using namespace std::chrono_literals;
using kalo::PrivateBus;
using kalo::mesh::MeshCode;

std::uint16_t Number(MeshCode code) {
  return static_cast<std::uint16_t>(code);
}

// Every call of the client, so that no one of them is left out of a rule.
void ExpectEveryCode(MeshCode code) {
  EXPECT_EQ(MeshClientFactory::GetClient()->GetNodeInfos().code, Number(code));
  EXPECT_EQ(MeshClientFactory::GetClient()->GetRepeaterAccessInfos().code, Number(code));
  EXPECT_EQ(MeshClientFactory::GetClient()->GetMeshSystemStatus().code, Number(code));
  EXPECT_EQ(MeshClientFactory::GetClient()->StartSystemUpdate() & 0xFFFFU, Number(code));
  EXPECT_EQ(MeshClientFactory::GetClient()->GetSystemUpdateProgress().code, Number(code));
  EXPECT_EQ(MeshClientFactory::GetClient()->GetSystemUpdateProgressV2().code, Number(code));
  EXPECT_EQ(kalo::GetMeshDetails().code, Number(code));
}

// Asks once and expects a time-out, no sooner and not much later than promised.
void ExpectTimeOut() {
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(MeshClientFactory::GetClient()->GetMeshSystemStatus().code,
            Number(MeshCode::kTimedOut));
  const auto passed = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(passed, 4s);
  EXPECT_LE(passed, 8s);
}

TEST(MeshClient, ABusThatCannotBeReachedThrows) {
  EXPECT_THROW(static_cast<void>(MeshClientFactory::GetClient()), std::exception);
  EXPECT_THROW(static_cast<void>(kalo::GetMeshDetails()), std::exception);
}

TEST(MeshClient, AServiceThatDoesNotRunIsACode) {
  const PrivateBus bus;
  ExpectEveryCode(MeshCode::kServiceMissing);
}

TEST(MeshClient, AServiceThatHangsIsACodeWithinTheDeadline) {
  const PrivateBus bus;
  const auto connection = sdbus::createSystemBusConnection(kalo::mesh::kServiceName);
  ExpectTimeOut();
}

// It accepts connections and says nothing, not even to the authentication.
TEST(MeshClient, ABusThatHangsIsACodeWithinTheDeadline) {
  const kalo::UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, PrivateBus::kSocket, sizeof(address.sun_path) - 1);
  ASSERT_EQ(bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  ASSERT_EQ(listen(listener.Get(), 4), 0);
  ExpectTimeOut();
  unlink(PrivateBus::kSocket);
}

TEST(MeshClient, AnErrorReplyIsACode) {
  const PrivateBus bus;
  // It has the name and answers, but knows no object.
  const auto connection = sdbus::createSystemBusConnection(kalo::mesh::kServiceName);
  connection->enterEventLoopAsync();
  ExpectEveryCode(MeshCode::kErrorReply);
  connection->leaveEventLoop();
}

TEST(MeshClient, AReplyOfOtherTypesIsACode) {
  const PrivateBus bus;
  const auto connection = sdbus::createSystemBusConnection();
  const auto object = sdbus::createObject(*connection, kalo::mesh::kObjectPath);
  for (const char* name :
       {kalo::mesh::method::kGetNodeInfos, kalo::mesh::method::kGetRepeaterAccessInfos,
        kalo::mesh::method::kGetMeshSystemStatus, kalo::mesh::method::kStartSystemUpdate,
        kalo::mesh::method::kGetSystemUpdateProgress,
        kalo::mesh::method::kGetSystemUpdateProgressV2, kalo::mesh::method::kGetNodes}) {
    object->registerMethod(name).onInterface(kalo::mesh::kInterface).implementedAs([] {
      return std::tuple(std::uint16_t{0}, std::string("what?"));
    });
  }
  object->finishRegistration();
  connection->requestName(kalo::mesh::kServiceName);
  connection->enterEventLoopAsync();
  ExpectEveryCode(MeshCode::kMalformedReply);
  connection->leaveEventLoop();
}

TEST(MeshClient, ALostBusIsACode) {
  PrivateBus bus;
  const auto client = MeshClientFactory::GetClient();
  ASSERT_EQ(client->GetMeshSystemStatus().code, Number(MeshCode::kServiceMissing));
  bus.Stop();
  std::uint16_t code = 0;
  try {
    code = client->GetMeshSystemStatus().code;
  } catch (const std::exception&) {
    code = Number(MeshCode::kConnectionLost);  // a bus that is gone may also be an exception
  }
  EXPECT_EQ(code, Number(MeshCode::kConnectionLost));
}

// The parent's connection is of no use in a child, but must not hang it; its own one works.
TEST(MeshClient, AForkedChildOpensAConnectionOfItsOwn) {
  const PrivateBus bus;
  const auto inherited = MeshClientFactory::GetClient();
  ASSERT_EQ(inherited->GetMeshSystemStatus().code, Number(MeshCode::kServiceMissing));
  const pid_t pid = fork();
  if (pid == 0) {
    alarm(30);
    const auto code = MeshClientFactory::GetClient()->GetMeshSystemStatus().code;
    _exit(code == Number(MeshCode::kServiceMissing) ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(inherited->GetMeshSystemStatus().code, Number(MeshCode::kServiceMissing));
}

TEST(ErrorCodes, EveryCodeHasANumberAndWords) {
  for (const MeshCode code :
       {MeshCode::kOk, MeshCode::kUpdateRunning, MeshCode::kNothingStaged,
        MeshCode::kCannotSaveState, MeshCode::kServiceMissing, MeshCode::kTimedOut,
        MeshCode::kErrorReply, MeshCode::kMalformedReply, MeshCode::kConnectionLost}) {
    EXPECT_NE(ErrorCodeToSemanticString(Number(code)), "unknown error");
    EXPECT_EQ(ErrorCodeToNumericalString(Number(code)), std::to_string(Number(code)));
  }
  EXPECT_EQ(ErrorCodeToSemanticString(65535), "unknown error");
  EXPECT_EQ(ErrorCodeToSemanticString(2), "no reachable node has a patch staged");
}

}  // namespace
}  // namespace KALO::MESH::SDK::Client
