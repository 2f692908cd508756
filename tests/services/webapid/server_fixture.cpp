#include "tests/services/webapid/server_fixture.h"

#include <crypt.h>
#include <signal.h>

#include <fstream>
#include <iterator>
#include <memory>

#include "host/core/spawn.h"
#include "host/core/strict_json.h"
#include "tests/support/raw_client.h"
#include "tests/support/wait.h"

namespace kalo::test {
namespace {

namespace fs = std::filesystem;

constexpr int kAdminPort = 443;
constexpr int kMeshPort = 8443;

void EmptyFolder(const fs::path& folder) {
  fs::create_directories(folder);
  for (const auto& entry : fs::directory_iterator(folder)) fs::remove_all(entry.path());
}

Json::Value MakeUser(const std::string& name, const std::string& password, const char* group) {
  std::string setting(CRYPT_GENSALT_OUTPUT_SIZE, '\0');
  crypt_gensalt_rn("$y$", 1, nullptr, 0, setting.data(), static_cast<int>(setting.size()));
  const auto data = std::make_unique<crypt_data>();
  Json::Value user(Json::objectValue);
  user["name"] = name;
  user["hash"] = crypt_r(password.c_str(), setting.c_str(), data.get());
  user["groups"] = Json::Value(Json::arrayValue);
  if (group != nullptr) user["groups"].append(group);
  return user;
}

void InstallPrograms() {
  EmptyFolder("/usr/kalo");
  fs::create_directories("/usr/kalo/sbin");
  fs::create_directories("/usr/kalo/webapi");
  fs::create_symlink(WEBAPID_WORKER, "/usr/kalo/sbin/webapid-worker");
  fs::create_symlink(WEBAPID_LOGIN, "/usr/kalo/sbin/webapid-login");
  fs::create_symlink(TEMPLATE_MODULE, "/usr/kalo/webapi/template.so");
  WriteTestFile("/usr/kalo/webapi/template.json", ReadTestFile(TEMPLATE_DESCRIPTION));
}

void InstallUsers() {
  Json::Value users(Json::objectValue);
  users["users"].append(MakeUser("admin", "correct horse", "administrators"));
  users["users"].append(MakeUser("guest", "correct horse", nullptr));
  WriteTestFile("/etc/kalo/users.json", WriteJson(users));
}

void InstallCertificates(const TestAuthority& mesh) {
  const Credential node = mesh.Issue("node0.mesh.internal");
  WriteTestFile("/etc/kalo/mesh/ca.crt", mesh.Certificate());
  WriteTestFile("/etc/kalo/mesh/node.crt", node.certificate);
  WriteTestFile("/etc/kalo/mesh/node.key", node.key);
  // The admin certificate is of the same authority here; clients of the test trust one file.
  const Credential server = mesh.Issue("router.test");
  WriteTestFile("/etc/kalo/tls/server.crt", server.certificate);
  WriteTestFile("/etc/kalo/tls/server.key", server.key);
}

}  // namespace

void WriteTestFile(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

std::string ReadTestFile(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

const TestAuthority& ServerTest::MeshAuthority() {
  static const TestAuthority authority;
  return authority;
}

void ServerTest::SetUp() {
  EmptyFolder("/volume1");
  EmptyFolder("/var/lib/kalo");
  EmptyFolder("/etc/kalo");
  for (const auto& entry : fs::directory_iterator("/run")) {
    if (entry.path().filename().string().starts_with("template.")) fs::remove(entry.path());
  }
  InstallPrograms();
  InstallUsers();
  InstallCertificates(MeshAuthority());
  Configure("");
  Start();
}

void ServerTest::TearDown() {
  if (server_ > 0) {
    EXPECT_EQ(Stop(), 0);
  }
  if (HasFailure()) std::cerr << log_.All();
}

void ServerTest::Configure(const std::string& more) {
  WriteTestFile("/etc/kalo/webapid.json",
                R"({"address":"127.0.0.1","admin_port":443,"mesh_port":8443)" + more + "}");
}

void ServerTest::Start(const std::vector<std::string>& arguments, int pass_fd) {
  std::vector<std::string> argv = {WEBAPID};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  SpawnOptions options;
  options.pass_fd = pass_fd;
  server_ = Spawn(argv, options);
  ASSERT_GT(server_, 0);
  ASSERT_TRUE(WaitFor([] { return Connect(kAdminPort) && Connect(kMeshPort); }));
}

int ServerTest::Stop(int signal) {
  kill(server_, signal);
  const int status = WaitForExit(server_);
  server_ = -1;
  return status;
}

HttpClient ServerTest::Admin() {
  return {"router.test", kAdminPort, "/etc/kalo/mesh/ca.crt"};
}

HttpClient ServerTest::SignedIn(const std::string& user) {
  HttpClient client = Admin();
  EXPECT_EQ(client.Login(user, kPassword).Code(), 0);
  return client;
}

HttpClient ServerTest::Node(const TestAuthority& authority, const std::string& name) {
  const Credential credential = authority.Issue(name);
  WriteTestFile("/tmp/client/" + name + ".crt", credential.certificate);
  WriteTestFile("/tmp/client/" + name + ".key", credential.key);
  HttpClient client("node0.mesh.internal", kMeshPort, "/etc/kalo/mesh/ca.crt");
  client.SetCertificate("/tmp/client/" + name + ".crt", "/tmp/client/" + name + ".key");
  return client;
}

HttpAnswer ServerTest::Call(HttpClient& client, const std::string& method,
                            const std::string& body) {
  return client.Post("KALO.Test/1/" + method, body);
}

}  // namespace kalo::test
