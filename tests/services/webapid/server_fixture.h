#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/services/webapid/test_authority.h"
#include "tests/support/http_client.h"
#include "tests/support/log_socket.h"

namespace kalo::test {

/// Each test gets a server of its own, with the template module, an administrator, a user without
/// groups, and credentials of the mesh.
class ServerTest : public testing::Test {
 protected:
  static constexpr const char* kAdmin = "admin";
  static constexpr const char* kGuest = "guest";
  static constexpr const char* kPassword = "correct horse";

  void SetUp() override;
  void TearDown() override;

  /// Replaces the configuration; counts at the next start.
  static void Configure(const std::string& more);
  void Start(const std::vector<std::string>& arguments = {}, int pass_fd = -1);
  /// Ends the server by SIGTERM, or by another signal.
  /// @return its exit status
  int Stop(int signal = 15);

  /// @return the server's process.
  [[nodiscard]] pid_t Pid() const { return server_; }

  [[nodiscard]] static HttpClient Admin();
  [[nodiscard]] static HttpClient SignedIn(const std::string& user = kAdmin);
  /// A client of the mesh port with a certificate of this authority and name.
  [[nodiscard]] static HttpClient Node(const TestAuthority& authority, const std::string& name);
  /// The mesh's authority; one for the whole run.
  [[nodiscard]] static const TestAuthority& MeshAuthority();
  [[nodiscard]] static HttpAnswer Call(HttpClient& client, const std::string& method,
                                       const std::string& body = "{}");

  LogSocket log_;

 private:
  pid_t server_ = -1;
};

void WriteTestFile(const std::filesystem::path& path, const std::string& text);
[[nodiscard]] std::string ReadTestFile(const std::filesystem::path& path);

}  // namespace kalo::test
