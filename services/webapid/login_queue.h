#pragma once

#include <cstddef>
#include <deque>
#include <functional>
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

/// Checks passwords one after the other in a helper process. One at a time: tries made side by
/// side would all be over before the first wrong one counts.
class LoginQueue {
 public:
  /// @param helper absolute path of the program; loop, children: borrowed, outlive the queue
  LoginQueue(EventLoop& loop, ChildWatch& children, std::string helper);

  void Submit(LoginTry attempt);
  /// Ends every waiting try with "server busy".
  void Stop();

 private:
  void Next();
  [[nodiscard]] bool StartHelper(const LoginTry& attempt);
  void OnEnded(int status);
  void Finish(int code, long wait_s);

  EventLoop& loop_;
  ChildWatch& children_;
  std::string helper_;
  LoginThrottle throttle_;
  std::deque<LoginTry> tries_;  // the first is being checked
  bool running_ = false;
  EventLoop::TimerId timer_{};
};

}  // namespace kalo::webapid
