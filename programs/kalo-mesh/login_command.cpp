#include <filesystem>
#include <iostream>

#include "host/core/file_io.h"
#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/terminal.h"

namespace kalo::cli {
namespace {

constexpr std::size_t kMaxPasswordFile = 4096;

std::string Password(const LoginOptions& options) {
  if (options.password_file.empty()) return ReadPassword("Password for " + options.user + ": ");
  auto text = ReadFile(options.password_file, kMaxPasswordFile);
  if (!text) throw Failure(kFailed, "cannot read " + options.password_file);
  return text->substr(0, text->find('\n'));
}

}  // namespace

int RunLogin(const CommonOptions& common, const LoginOptions& options) {
  Session session;
  session.server = options.server;
  while (session.server.ends_with('/')) session.server.pop_back();
  if (!session.server.starts_with("https://")) {
    throw Failure(kUsage, "--server takes an address that begins with https://");
  }
  session.ca_file = std::filesystem::absolute(options.ca_file);
  ApiClient client(session, common.connect_deadline);
  client.Login(options.user, Password(options));
  SaveSession(common.session_file, client.CurrentSession());
  if (common.json) {
    std::cout << "{}\n";
  } else {
    std::cout << "Signed in at " << Printable(session.server) << ".\n";
  }
  return kOk;
}

int RunLogout(const CommonOptions& common) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  RemoveSession(common.session_file);
  client.Call("KALO.Core.Auth", 1, "logout", Json::objectValue);
  std::cout << (common.json ? "{}\n" : "Signed out.\n");
  return kOk;
}

}  // namespace kalo::cli
