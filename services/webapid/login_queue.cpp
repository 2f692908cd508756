#include "services/webapid/login_queue.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "host/core/spawn.h"
#include "host/core/unique_fd.h"
#include "host/webapi/error_codes.h"

namespace kalo::webapid {
namespace {

constexpr std::size_t kMostWaiting = 16;
constexpr std::chrono::seconds kHelperTime{10};

// Names come from outside; only harmless ones are written into the log.
std::string Printable(const std::string& user) {
  const bool harmless = std::all_of(user.begin(), user.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '-' || c == '_';
  });
  return harmless ? user : "(odd name)";
}

}  // namespace

LoginQueue::LoginQueue(EventLoop& loop, ChildWatch& children, std::string helper)
    : loop_(loop), children_(children), helper_(std::move(helper)) {}

void LoginQueue::Submit(LoginTry attempt) {
  if (tries_.size() >= kMostWaiting) return attempt.done(webapi::kServerBusy, 1);
  tries_.push_back(std::move(attempt));
  if (!running_) Next();
}

void LoginQueue::Next() {
  while (!tries_.empty() && !running_) {
    const LoginTry& attempt = tries_.front();
    const auto wait = throttle_.Wait(attempt.user, attempt.peer, EventLoop::Clock::now());
    if (wait.count() > 0) {
      Finish(webapi::kWaitBeforeRetry, static_cast<long>(wait.count()));
    } else if (StartHelper(attempt)) {
      running_ = true;
    } else {
      Log(LOG_ERR, "cannot start %s: %s", helper_.c_str(), std::strerror(errno));
      Finish(webapi::kServerBusy, 1);
    }
  }
}

bool LoginQueue::StartHelper(const LoginTry& attempt) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return false;
  const UniqueFd read_end(ends[0]);
  const UniqueFd write_end(ends[1]);
  // Fits into a pipe's buffer, so that this does not wait for the helper.
  const std::string input = attempt.user + '\0' + attempt.password + '\0';
  if (!WriteAll(write_end.Get(), input)) return false;
  SpawnOptions options;
  options.stdin_fd = read_end.Get();
  const pid_t pid = Spawn({helper_}, options);
  if (pid < 0) return false;
  children_.Expect(pid, [this](int status) { OnEnded(status); });
  timer_ = loop_.At(EventLoop::Clock::now() + kHelperTime, [pid] { kill(pid, SIGKILL); });
  return true;
}

void LoginQueue::OnEnded(int status) {
  loop_.Cancel(timer_);
  running_ = false;
  if (tries_.empty()) return;
  const LoginTry& attempt = tries_.front();
  const int exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  if (exit_status == 0) {
    throttle_.Succeeded(attempt.user, attempt.peer);
    Log(LOG_NOTICE, "%s signed in from %s", Printable(attempt.user).c_str(), attempt.peer.c_str());
    Finish(0, 0);
  } else if (exit_status == 1) {
    throttle_.Failed(attempt.user, attempt.peer, EventLoop::Clock::now());
    Log(LOG_WARNING, "wrong user or password: %s from %s", Printable(attempt.user).c_str(),
        attempt.peer.c_str());
    Finish(webapi::kWrongPassword, 0);
  } else {
    Log(LOG_ERR, "%s failed (status %d)", helper_.c_str(), status);
    Finish(webapi::kGeneralFailure, 0);
  }
  Next();
}

void LoginQueue::Finish(int code, long wait_s) {
  const LoginTry attempt = std::move(tries_.front());
  tries_.pop_front();
  attempt.done(code, wait_s);
}

void LoginQueue::Stop() {
  while (!tries_.empty()) Finish(webapi::kServerBusy, 1);
}

}  // namespace kalo::webapid
