#pragma once

#include <optional>
#include <string>

#include "services/webapid/login_queue.h"
#include "services/webapid/request.h"
#include "services/webapid/session_store.h"
#include "services/webapid/user_store.h"

namespace kalo::webapid {

/// Signing in and out on the admin port, and who is signed in. Served by the front itself: no
/// module is involved.
class Authentication {
 public:
  /// All borrowed; they outlive this object.
  Authentication(SessionStore& sessions, UserStore& users, LoginQueue& logins)
      : sessions_(sessions), users_(users), logins_(logins) {}

  /// Finds out by cookie and token header who makes the request.
  /// @return 0 with the caller set, or the error to answer with.
  [[nodiscard]] int Identify(Request& request);

  /// @return the request's session as CallerOf takes it.
  [[nodiscard]] static std::string SessionOf(const Request& request);
  /// @return who has this session now, if it lives. Being asked does not prolong it.
  [[nodiscard]] Caller CallerOf(const std::string& session) const;

  /// @param parameters {"user":…,"password":…}
  void Login(Request& request, const Json::Value& parameters);
  void Logout(Request& request);

 private:
  [[nodiscard]] const UserRecord* UserOf(const SessionCheck& check) const;
  void Welcome(Request& request, const std::string& user);

  SessionStore& sessions_;
  UserStore& users_;
  LoginQueue& logins_;
};

}  // namespace kalo::webapid
