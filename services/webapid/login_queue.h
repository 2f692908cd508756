#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <optional>
#include <string>

#include "services/webapid/child_watch.h"
#include "services/webapid/event_loop.h"
#include "services/webapid/login_throttle.h"

namespace kalo::webapid {

/// One try to sign in.
struct LoginTry {
  std::string user;
  std::string password;
  std::string peer;  ///< the address that it comes from
  /// Called once: 0 when the password is right, else the error code, with the seconds to wait when
  /// there are any. May run before Submit returns.
  std::function<void(int code, long wait_s)> done;
};

/// Checks passwords one after the other in a helper process of low priority, so that checking never
/// takes more than one processor, and that only while it is not needed otherwise. One at a time
/// also because tries made side by side would all be over before the first wrong one counts.
///
/// A try that has to wait for its delay is refused at once. An address has few places in the queue,
/// and gives up one to an address that has none; users who signed in from their address before come
/// first.
class LoginQueue {
 public:
  /// @param helper absolute path of the program; loop, children: borrowed, outlive the queue
  LoginQueue(EventLoop& loop, ChildWatch& children, std::string helper);

  void Submit(LoginTry attempt);
  /// Ends every waiting try with "server busy".
  void Stop();

 private:
  void Next();
  [[nodiscard]] bool IsTrusted(const LoginTry& attempt) const;
  [[nodiscard]] bool MakeRoom(const LoginTry& attempt);
  [[nodiscard]] std::size_t CountOf(const std::string& peer) const;
  [[nodiscard]] bool StartHelper(const LoginTry& attempt);
  void OnEnded(int status);

  EventLoop& loop_;
  ChildWatch& children_;
  std::string helper_;
  LoginThrottle throttle_;
  std::list<LoginTry> waiting_;  // trusted ones first
  std::optional<LoginTry> running_;
  EventLoop::TimerId timer_{};
};

}  // namespace kalo::webapid
