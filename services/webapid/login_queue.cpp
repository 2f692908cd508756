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
#include <iterator>
#include <utility>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "host/core/spawn.h"
#include "host/core/unique_fd.h"
#include "host/webapi/error_codes.h"

namespace kalo::webapid {
namespace {

constexpr std::size_t kMostWaiting = 32;
constexpr std::size_t kMostOfOneAddress = 2;
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
  const auto wait = throttle_.Wait(attempt.user, attempt.peer, EventLoop::Clock::now());
  if (wait.count() > 0) {
    return attempt.done(webapi::kWaitBeforeRetry, static_cast<long>(wait.count()));
  }
  if (!MakeRoom(attempt)) return attempt.done(webapi::kServerBusy, 1);
  const auto place = !IsTrusted(attempt)
                         ? waiting_.end()
                         : std::find_if(waiting_.begin(), waiting_.end(),
                                        [this](const auto& other) { return !IsTrusted(other); });
  waiting_.insert(place, std::move(attempt));
  if (!running_) Next();
}

bool LoginQueue::IsTrusted(const LoginTry& attempt) const {
  return throttle_.IsTrusted(attempt.user, attempt.peer);
}

std::size_t LoginQueue::CountOf(const std::string& peer) const {
  return static_cast<std::size_t>(
      std::count_if(waiting_.begin(), waiting_.end(),
                    [&](const LoginTry& attempt) { return attempt.peer == peer; }));
}

bool LoginQueue::MakeRoom(const LoginTry& attempt) {
  const std::size_t own = CountOf(attempt.peer);
  if (own >= kMostOfOneAddress) return false;
  if (waiting_.size() < kMostWaiting) return true;
  const bool is_trusted = IsTrusted(attempt);
  const auto last = std::find_if(waiting_.rbegin(), waiting_.rend(), [&](const LoginTry& other) {
    return !IsTrusted(other) && (is_trusted || (own == 0 && CountOf(other.peer) > 1));
  });
  if (last == waiting_.rend()) return false;
  const LoginTry pushed_out = std::move(*last);
  waiting_.erase(std::next(last).base());
  pushed_out.done(webapi::kServerBusy, 1);
  return true;
}

void LoginQueue::Next() {
  while (!waiting_.empty() && !running_) {
    LoginTry attempt = std::move(waiting_.front());
    waiting_.pop_front();
    // Another try of this user or address may have failed meanwhile.
    const auto wait = throttle_.Wait(attempt.user, attempt.peer, EventLoop::Clock::now());
    if (wait.count() > 0) {
      attempt.done(webapi::kWaitBeforeRetry, static_cast<long>(wait.count()));
    } else if (StartHelper(attempt)) {
      running_ = std::move(attempt);
    } else {
      Log(LOG_ERR, "cannot start %s: %s", helper_.c_str(), std::strerror(errno));
      attempt.done(webapi::kServerBusy, 1);
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
  if (!running_) return;  // stopped meanwhile
  const LoginTry attempt = *std::exchange(running_, std::nullopt);
  const auto now = EventLoop::Clock::now();
  const int exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  if (exit_status == 0) {
    throttle_.Succeeded(attempt.user, attempt.peer, now);
    Log(LOG_NOTICE, "%s signed in from %s", Printable(attempt.user).c_str(), attempt.peer.c_str());
    attempt.done(0, 0);
  } else if (exit_status == 1) {
    throttle_.Failed(attempt.user, attempt.peer, now);
    Log(LOG_WARNING, "wrong user or password: %s from %s", Printable(attempt.user).c_str(),
        attempt.peer.c_str());
    attempt.done(webapi::kWrongPassword, 0);
  } else {
    Log(LOG_ERR, "%s failed (status %d)", helper_.c_str(), status);
    attempt.done(webapi::kGeneralFailure, 0);
  }
  Next();
}

void LoginQueue::Stop() {
  if (running_) std::exchange(running_, std::nullopt)->done(webapi::kServerBusy, 1);
  for (const LoginTry& attempt : std::exchange(waiting_, {})) attempt.done(webapi::kServerBusy, 1);
}

}  // namespace kalo::webapid
