#include "programs/kalo-mesh/session_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "host/core/file_io.h"
#include "host/core/strict_json.h"
#include "platform/paths.h"
#include "programs/kalo-mesh/failure.h"

namespace kalo::cli {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kMaxSession = 65536;

fs::path Home() {
  const char* home = std::getenv("HOME");
  return home != nullptr && *home != '\0' ? home : "/root";
}

}  // namespace

std::string DefaultSessionFile() {
  const char* folder = std::getenv("XDG_CONFIG_HOME");
  const fs::path base =
      folder != nullptr && *folder != '\0' ? fs::path(folder) : Home() / ".config";
  return base / "kalo-mesh" / "session.json";
}

Session OpenSession(const CommonOptions& common) {
  if (common.local) return {std::string(kUnixServer) + KALO::paths::kLocalSocket, "", "", ""};
  return LoadSession(common.session_file);
}

Session LoadSession(const std::string& path) {
  const auto text = ReadFile(path, kMaxSession);
  if (!text) throw Failure(kFailed, "not signed in (" + path + "): run kalo-mesh login first");
  const auto root = ParseStrictJson(*text);
  Session session;
  for (const auto& [key, field] :
       {std::pair{"server", &session.server}, std::pair{"ca", &session.ca_file},
        std::pair{"cookie", &session.cookie}, std::pair{"token", &session.token}}) {
    if (!root || !root->isObject() || !(*root)[key].isString()) {
      throw Failure(kFailed, path + " is damaged: run kalo-mesh login again");
    }
    *field = (*root)[key].asString();
  }
  return session;
}

void SaveSession(const std::string& path, const Session& session) {
  Json::Value root(Json::objectValue);
  root["server"] = session.server;
  root["ca"] = session.ca_file;
  root["cookie"] = session.cookie;
  root["token"] = session.token;
  std::error_code ignored;
  fs::create_directories(fs::path(path).parent_path(), ignored);
  if (!WriteFileAtomic(path, WriteJson(root) + "\n", 0600)) {
    throw Failure(kFailed, "cannot write " + path + ": " + std::generic_category().message(errno));
  }
}

void RemoveSession(const std::string& path) {
  unlink(path.c_str());
}

}  // namespace kalo::cli
