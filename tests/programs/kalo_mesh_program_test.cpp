// The program itself, against nothing: what it does without a server.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "box/setup/certificates.h"
#include "host/core/file_io.h"
#include "host/core/spawn.h"
#include "host/core/unique_fd.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/session_file.h"
#include "services/feedd/feed_server.h"
#include "tests/support/public_authority.h"

namespace kalo::cli {
namespace {

struct Result {
  int status;
  std::string out;
  std::string err;
};

Result RunProgram(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), KALO_MESH);
  const UniqueFd out(open("/tmp/out", O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  const UniqueFd err(open("/tmp/err", O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  SpawnOptions options;
  options.stdout_fd = out.Get();
  options.stderr_fd = err.Get();
  const int status = WaitForExit(Spawn(arguments, options));
  return {status, ReadFile("/tmp/out", 1 << 20).value_or(""),
          ReadFile("/tmp/err", 1 << 20).value_or("")};
}

TEST(KaloMesh, HelpEndsWithSuccessAndNamesEveryCommand) {
  const Result result = RunProgram({"--help"});
  EXPECT_EQ(result.status, kOk);
  for (const char* command : {"login", "status", "progress", "upload", "start", "nodes"}) {
    EXPECT_THAT(result.out, testing::HasSubstr(command));
    EXPECT_EQ(RunProgram({command, "--help"}).status, kOk) << command;
  }
}

TEST(KaloMesh, WrongUsageEndsWith2) {
  EXPECT_EQ(RunProgram({}).status, kUsage);
  EXPECT_EQ(RunProgram({"dance"}).status, kUsage);
  EXPECT_EQ(RunProgram({"upload"}).status, kUsage);
  EXPECT_EQ(RunProgram({"login", "--server", "http://x", "--ca", "/x"}).status, kUsage);
}

TEST(KaloMesh, WithoutASessionItSaysWhatToDo) {
  const Result result = RunProgram({"--session", "/tmp/none.json", "status"});
  EXPECT_EQ(result.status, kFailed);
  EXPECT_THAT(result.err, testing::HasSubstr("kalo-mesh login"));
}

TEST(KaloMesh, AServerThatIsNotThereEndsWith4) {
  SaveSession("/tmp/session.json", {"https://127.0.0.1:1", "/etc/hostname", "c", "t"});
  const Result result =
      RunProgram({"--session", "/tmp/session.json", "--connect-timeout", "0", "nodes"});
  EXPECT_EQ(result.status, kNotReachable) << result.err;
  EXPECT_THAT(result.err, testing::HasSubstr("https://127.0.0.1:1"));
}

// Whoever gets a public authority to vouch for the router's name must not get the session's cookie.
TEST(KaloMesh, OnlyTheSessionsAuthorityVouchesForTheRouter) {
  const box::CertificateAuthority authority("Everybody's");
  const box::Credential router = authority.Issue({"router", {}, {"127.0.0.1"}});
  const feedd::FeedServer server({"/tmp", "127.0.0.1", 0, router.certificate, router.key});
  const test::PublicAuthority everybodys(authority.Certificate());
  const auto ask = [&](const box::CertificateAuthority& trusted) {
    std::ofstream("/tmp/ca.pem") << trusted.Certificate();
    SaveSession("/tmp/session.json", {server.Url(), "/tmp/ca.pem", "c", "t"});
    return RunProgram({"--session", "/tmp/session.json", "--connect-timeout", "0", "nodes"}).err;
  };
  const char* complaint = "Its certificate does not come from the authority in /tmp/ca.pem";
  EXPECT_THAT(ask(box::CertificateAuthority("The router's")), testing::HasSubstr(complaint));
  EXPECT_THAT(ask(authority), testing::Not(testing::HasSubstr(complaint)));
}

TEST(KaloMesh, PatchesAreNamedByTheirModel) {
  SaveSession("/tmp/session.json", {"https://127.0.0.1:1", "/x", "c", "t"});
  for (const char* word : {"file.pat", "=file.pat", "kalo_m1="}) {
    EXPECT_EQ(RunProgram({"--session", "/tmp/session.json", "upload", word}).status, kUsage)
        << word;
  }
  const Result missing =
      RunProgram({"--session", "/tmp/session.json", "upload", "kalo_m1=/none.pat"});
  EXPECT_EQ(missing.status, kFailed);
  EXPECT_THAT(missing.err, testing::HasSubstr("/none.pat"));
}

TEST(SessionFile, RoundTripsAndIsItsOwnersAlone) {
  SaveSession("/tmp/deep/session.json", {"https://a", "/ca", "cookie", "token"});
  struct stat found {};
  ASSERT_EQ(stat("/tmp/deep/session.json", &found), 0);
  EXPECT_EQ(found.st_mode & 0777U, 0600U);
  const Session session = LoadSession("/tmp/deep/session.json");
  EXPECT_EQ(session.server, "https://a");
  EXPECT_EQ(session.ca_file, "/ca");
  EXPECT_EQ(session.cookie, "cookie");
  EXPECT_EQ(session.token, "token");
}

TEST(SessionFile, ADamagedOneIsAnErrorNotACrash) {
  for (const char* text : {"", "[]", "{", R"({"server": 1})"}) {
    std::ofstream("/tmp/bad.json") << text;
    std::filesystem::permissions("/tmp/bad.json", std::filesystem::perms(0600));
    EXPECT_THROW((void)LoadSession("/tmp/bad.json"), Failure) << text;
  }
}

}  // namespace
}  // namespace kalo::cli
