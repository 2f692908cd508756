#include "services/webapid/authentication.h"

#include <syslog.h>

#include <cstddef>
#include <exception>
#include <optional>

#include "host/core/log.h"
#include "host/core/strict_json.h"
#include "host/webapi/error_codes.h"

namespace kalo::webapid {
namespace {

constexpr const char* kCookie = "kalo_session";
constexpr const char* kTokenHeader = "X-KALO-Token";
constexpr const char* kCookieRules = "; HttpOnly; Secure; SameSite=Strict; Path=/";
constexpr std::size_t kLongestUser = 64;
constexpr std::size_t kLongestPassword = 1024;

// A secret as it is typed: it goes to the helper between NUL bytes.
std::optional<std::string> TextOf(const Json::Value& parameters, const char* name,
                                  std::size_t longest) {
  if (!parameters.isMember(name) || !parameters[name].isString()) return std::nullopt;
  std::string text = parameters[name].asString();
  if (text.size() > longest || text.find('\0') != std::string::npos) return std::nullopt;
  return text;
}

}  // namespace

int Authentication::Identify(Request& request) {
  const std::string cookie = request.Cookie(kCookie);
  const SessionCheck check = sessions_.Check(cookie, request.Header(kTokenHeader));
  switch (check.state) {
    case SessionState::kNone:
      return webapi::kNotSignedIn;
    case SessionState::kEnded:
      return webapi::kSessionEnded;
    case SessionState::kTokenWrong:
      return webapi::kTokenWrong;
    case SessionState::kValid:
      break;
  }
  const UserRecord* user = UserOf(check);
  if (user == nullptr) {
    sessions_.End(cookie);
    return webapi::kSessionEnded;
  }
  request.caller = User{check.user, user->groups};
  return 0;
}

std::string Authentication::SessionOf(const Request& request) {
  return request.Cookie(kCookie);
}

Caller Authentication::CallerOf(const std::string& session) const {
  const SessionCheck check = sessions_.Look(session);
  const UserRecord* user = check.state == SessionState::kValid ? UserOf(check) : nullptr;
  return user != nullptr ? Caller(User{check.user, user->groups}) : Caller();
}

// Null when the user has gone, or has another password since.
const UserRecord* Authentication::UserOf(const SessionCheck& check) const {
  const UserRecord* user = users_.Find(check.user);
  return user != nullptr && user->credential == check.credential ? user : nullptr;
}

void Authentication::Login(Request& request, const Json::Value& parameters) {
  const auto user = TextOf(parameters, "user", kLongestUser);
  const auto password = TextOf(parameters, "password", kLongestPassword);
  if (!user || !password || parameters.size() != 2) {
    return request.Answer(ErrorReply(webapi::kMalformedRequest));
  }
  logins_.Submit({*user, *password, request.Client().Peer(),
                  [this, &request, user = *user](int code, long wait_s) {
                    if (code == 0) return Welcome(request, user);
                    request.Answer(wait_s > 0 ? RetryReply(code, wait_s) : ErrorReply(code));
                  }});
}

void Authentication::Welcome(Request& request, const std::string& user) {
  const UserRecord* record = users_.Find(user);
  if (record == nullptr) return request.Answer(ErrorReply(webapi::kWrongPassword));
  SessionSecrets secrets;
  try {
    secrets = sessions_.Create(user, record->credential);
  } catch (const std::exception& e) {
    Log(LOG_ERR, "no session can be made: %s", e.what());
    return request.Answer(ErrorReply(webapi::kGeneralFailure));
  }
  Json::Value envelope(Json::objectValue);
  envelope["success"] = true;
  envelope["data"]["token"] = secrets.token;
  Reply reply = EnvelopeReply(WriteJson(envelope));
  reply.headers.emplace_back("Set-Cookie",
                             std::string(kCookie) + "=" + secrets.cookie + kCookieRules);
  request.Answer(std::move(reply));
}

void Authentication::Logout(Request& request) {
  sessions_.End(request.Cookie(kCookie));
  Json::Value envelope(Json::objectValue);
  envelope["success"] = true;
  envelope["data"] = Json::Value();
  Reply reply = EnvelopeReply(WriteJson(envelope));
  reply.headers.emplace_back("Set-Cookie",
                             std::string(kCookie) + "=" + kCookieRules + "; Max-Age=0");
  request.Answer(std::move(reply));
}

}  // namespace kalo::webapid
