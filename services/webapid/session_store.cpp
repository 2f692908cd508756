#include "services/webapid/session_store.h"

#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "host/core/strict_json.h"
#include "services/webapid/digest.h"

namespace kalo::webapid {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostSessions = 256;
constexpr std::size_t kSecretBytes = 32;
constexpr std::size_t kLargestFile = 4096;
// How much of the idle limit may be lost when the server restarts.
constexpr std::int64_t kUsedSteps = 16;

bool IsSessionId(const std::string& name) {
  return name.size() == 64 && name.find_first_not_of("0123456789abcdef") == std::string::npos;
}

}  // namespace

SessionStore::SessionStore(Options options) : options_(std::move(options)) {
  fs::create_directories(options_.folder);
  fs::permissions(options_.folder, fs::perms::owner_all);
  for (const auto& entry : fs::directory_iterator(options_.folder)) Load(entry.path());
}

fs::path SessionStore::FileOf(const std::string& id) const {
  return options_.folder / id;
}

bool SessionStore::Lives(const Session& session) const {
  const std::int64_t now = options_.now();
  // A clock that was set back makes sessions from the future; they end too.
  return session.created <= now && session.used <= now &&
         now - session.used < options_.idle.count() &&
         now - session.created < options_.absolute.count();
}

void SessionStore::Load(const fs::path& file) {
  const std::optional<std::string> text = ReadFile(file, kLargestFile);
  const std::optional<Json::Value> value = text ? ParseStrictJson(*text) : std::nullopt;
  Session session;
  if (value && value->isObject() && IsSessionId(file.filename())) {
    const Json::Value& entry = *value;
    if (entry["user"].isString()) session.user = entry["user"].asString();
    if (entry["credential"].isString()) session.credential = entry["credential"].asString();
    if (entry["token"].isString()) session.token_hash = entry["token"].asString();
    if (entry["created"].isInt64()) session.created = entry["created"].asInt64();
    if (entry["used"].isInt64()) session.used = entry["used"].asInt64();
    session.stored_used = session.used;
  }
  if (session.user.empty() || !IsSessionId(session.token_hash) || !Lives(session)) {
    std::error_code ignored;
    fs::remove(file, ignored);
    return;
  }
  sessions_.emplace(file.filename(), std::move(session));
}

void SessionStore::Store(const std::string& id, Session& session) {
  Json::Value entry(Json::objectValue);
  entry["user"] = session.user;
  entry["credential"] = session.credential;
  entry["token"] = session.token_hash;
  entry["created"] = Json::Int64{session.created};
  entry["used"] = Json::Int64{session.used};
  if (!WriteFileAtomic(FileOf(id), WriteJson(entry), S_IRUSR | S_IWUSR)) {
    throw std::system_error(errno, std::generic_category(), FileOf(id));
  }
  session.stored_used = session.used;
}

void SessionStore::Remove(Sessions::iterator session) {
  std::error_code ignored;
  fs::remove(FileOf(session->first), ignored);
  sessions_.erase(session);
}

void SessionStore::RemoveOldest() {
  for (auto it = sessions_.begin(); it != sessions_.end();) {
    const auto session = it++;
    if (!Lives(session->second)) Remove(session);
  }
  if (sessions_.size() < kMostSessions) return;
  Remove(std::min_element(sessions_.begin(), sessions_.end(), [](const auto& a, const auto& b) {
    return a.second.used < b.second.used;
  }));
}

SessionSecrets SessionStore::Create(const std::string& user, const std::string& credential) {
  RemoveOldest();
  SessionSecrets secrets{RandomHex(kSecretBytes), RandomHex(kSecretBytes)};
  const std::int64_t now = options_.now();
  Session session{user, credential, Sha256Hex(secrets.token), now, now, now};
  const std::string id = Sha256Hex(secrets.cookie);
  Store(id, session);
  sessions_.emplace(id, std::move(session));
  return secrets;
}

void SessionStore::KeepUse(const std::string& id, Session& session) {
  if (session.used - session.stored_used < options_.idle.count() / kUsedSteps) return;
  try {
    Store(id, session);
  } catch (const std::system_error& e) {
    Log(LOG_WARNING, "a session's last use is not kept: %s", e.what());
  }
}

SessionCheck SessionStore::Check(const std::string& cookie, const std::string& token) {
  if (cookie.empty()) return {SessionState::kNone, "", ""};
  const auto found = sessions_.find(Sha256Hex(cookie));
  if (found == sessions_.end()) return {SessionState::kEnded, "", ""};
  Session& session = found->second;
  if (!Lives(session)) {
    Remove(found);
    return {SessionState::kEnded, "", ""};
  }
  if (!EqualInConstantTime(Sha256Hex(token), session.token_hash)) {
    return {SessionState::kTokenWrong, session.user, session.credential};
  }
  session.used = options_.now();
  KeepUse(found->first, session);
  return {SessionState::kValid, session.user, session.credential};
}

SessionCheck SessionStore::Look(const std::string& cookie) const {
  const auto found = sessions_.find(Sha256Hex(cookie));
  if (found == sessions_.end() || !Lives(found->second)) return {SessionState::kEnded, "", ""};
  return {SessionState::kValid, found->second.user, found->second.credential};
}

void SessionStore::End(const std::string& cookie) {
  const auto session = sessions_.find(Sha256Hex(cookie));
  if (session != sessions_.end()) Remove(session);
}

}  // namespace kalo::webapid
