#include "services/webapid/worker_pool.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "host/core/log.h"
#include "host/core/spawn.h"
#include "host/webapi/error_codes.h"
#include "services/webapid/worker_channel.h"

namespace kalo::webapid {
namespace {

constexpr std::size_t kMostWaiting = 64;
constexpr std::chrono::seconds kLongestWait{1};
constexpr timespec kQuick{0, std::chrono::nanoseconds(Patience::kWait).count()};
// What a rush needed is given back after it.
constexpr std::chrono::seconds kIdle{10};

void LogDeath(pid_t pid, int status) {
  if (WIFSIGNALED(status)) {
    Log(LOG_WARNING, "worker %d was ended by signal %d", pid, WTERMSIG(status));
  } else if (WEXITSTATUS(status) != 0) {
    Log(LOG_WARNING, "worker %d ended with status %d", pid, WEXITSTATUS(status));
  }
}

}  // namespace

WorkerPool::WorkerPool(EventLoop& loop, ChildWatch& children, Options options)
    : loop_(loop), children_(children), options_(std::move(options)) {}

WorkerPool::~WorkerPool() {
  loop_.Cancel(shrink_);
  while (!workers_.empty()) LetGo(workers_.begin(), false);
}

bool WorkerPool::MayTake(const Job& job) const {
  const auto others = std::count_if(workers_.begin(), workers_.end(), [](const Worker& worker) {
    return worker.busy && !IsPoll(worker.job);
  });
  return IsPoll(job) || static_cast<std::size_t>(others) + 1 < options_.limit;
}

WorkerPool::WorkerRef WorkerPool::FindIdle() {
  return std::find_if(workers_.begin(), workers_.end(),
                      [](const Worker& worker) { return !worker.busy; });
}

WorkerPool::WorkerRef WorkerPool::Start() {
  ChannelPair channel;
  try {
    channel = MakeChannel();
  } catch (const std::system_error& e) {
    Log(LOG_ERR, "no channel for a worker: %s", e.what());
    return workers_.end();
  }
  SpawnOptions options;
  options.pass_fd = channel.worker.Get();
  const pid_t pid = Spawn({options_.program}, options);
  if (pid < 0) {
    Log(LOG_ERR, "cannot start %s: %s", options_.program.c_str(), std::strerror(errno));
    return workers_.end();
  }
  const WorkerRef worker = workers_.emplace(workers_.end());
  worker->pid = pid;
  worker->channel = std::move(channel.front);
  worker->watch = loop_.Watch(worker->channel.Get(), [this, worker] { (void)OnReadable(worker); });
  if (workers_.size() == 2) ShrinkLater();
  // The pool may be gone when the last worker is.
  children_.Expect(pid, [pid, gone = options_.on_gone](int status) {
    LogDeath(pid, status);
    if (gone && status != 0) gone();
  });
  return worker;
}

bool WorkerPool::Give(WorkerRef worker, Job& job) {
  if (!SendMessage(worker->channel.Get(), 0, job.message)) {
    Log(LOG_WARNING, "worker %d takes no request: %s", worker->pid, std::strerror(errno));
    LetGo(worker, false);
    return false;
  }
  worker->busy = true;
  worker->job = std::move(job);
  return true;
}

void WorkerPool::Submit(Job job) {
  if (MayTake(job)) {
    const WorkerRef worker = GiveToSomebody(job);
    if (worker != workers_.end()) {
      if (!AnswersAtOnce(worker)) StartTimer(worker);
      return;
    }
  }
  if (IsPoll(job) && waiting_.size() < kMostWaiting) return Wait(std::move(job));
  job.done(webapi::kServerBusy, "");
}

// Most polls read a file or two and are answered sooner than the library can put a connection aside
// and take it up again: those are waited for here and now, the others by and by.
bool WorkerPool::AnswersAtOnce(WorkerRef worker) {
  if (!IsPoll(worker->job) || !worker->started) return false;
  Patience& patience = patience_[worker->job.row];
  if (!patience.IsThere(EventLoop::Clock::now())) return false;
  pollfd answer{worker->channel.Get(), POLLIN, 0};
  const bool came = ppoll(&answer, 1, &kQuick, nullptr) == 1 && OnReadable(worker);
  if (came) {
    patience.CameInTime();
  } else {
    patience.WaitedInVain(EventLoop::Clock::now());
  }
  return came;
}

void WorkerPool::StartTimer(WorkerRef worker) {
  worker->timer = loop_.At(EventLoop::Clock::now() + worker->job.row->timeout,
                           [this, worker] { OnTimeLimit(worker); });
}

WorkerPool::WorkerRef WorkerPool::GiveToSomebody(Job& job) {
  // An idle worker may have died unnoticed a moment ago; the next one then takes the job.
  for (auto idle = FindIdle(); idle != workers_.end(); idle = FindIdle()) {
    if (Give(idle, job)) return idle;
  }
  if (workers_.size() >= options_.limit) return workers_.end();
  const WorkerRef started = Start();
  return started != workers_.end() && Give(started, job) ? started : workers_.end();
}

void WorkerPool::Wait(Job job) {
  const auto waiting = waiting_.insert(waiting_.end(), Waiting{std::move(job), {}});
  waiting->timer = loop_.At(EventLoop::Clock::now() + kLongestWait, [this, waiting] {
    const Job late = std::move(waiting->job);
    waiting_.erase(waiting);
    late.done(webapi::kServerBusy, "");
  });
}

void WorkerPool::ServeWaiting() {
  while (!waiting_.empty()) {
    const WorkerRef worker = GiveToSomebody(waiting_.front().job);
    if (worker == workers_.end()) return;
    loop_.Cancel(waiting_.front().timer);
    waiting_.pop_front();
    StartTimer(worker);
  }
}

bool WorkerPool::OnReadable(WorkerRef worker) {
  ChannelMessage answer;
  const Received received = ReceiveMessage(worker->channel.Get(), answer);
  if (received == Received::kNothingYet) return false;
  if (received == Received::kMessage && worker->busy) {
    const Job job = std::exchange(worker->job, {});
    worker->busy = false;
    worker->started = true;
    worker->answered = EventLoop::Clock::now();
    loop_.Cancel(worker->timer);
    if ((answer.flags & kRetiring) != 0) LetGo(worker, true);
    ServeWaiting();
    job.done(0, std::move(answer.body));
    return true;
  }
  // A worker that says something unasked is as broken as one that died.
  if (received != Received::kClosed) kill(worker->pid, SIGKILL);
  Finish(worker, webapi::kWorkerDied, "");
  return true;
}

void WorkerPool::OnTimeLimit(WorkerRef worker) {
  Log(LOG_WARNING, "worker %d reached its time limit of %lld s and is killed", worker->pid,
      static_cast<long long>(worker->job.row->timeout.count()));
  kill(worker->pid, SIGKILL);
  Finish(worker, webapi::kTimeLimit, "");
}

void WorkerPool::Finish(WorkerRef worker, int code, std::string envelope) {
  const bool was_busy = worker->busy;
  const Job job = std::move(worker->job);
  LetGo(worker, false);
  ServeWaiting();
  if (was_busy) job.done(code, std::move(envelope));
}

void WorkerPool::LetGo(WorkerRef worker, bool retired) {
  loop_.Cancel(worker->timer);
  loop_.Forget(worker->watch);
  if (retired) {
    children_.Expect(worker->pid, [pid = worker->pid, gone = options_.on_gone](int status) {
      LogDeath(pid, status);
      if (gone) gone();
    });
  }
  workers_.erase(worker);
}

void WorkerPool::ShrinkLater() {
  loop_.Cancel(shrink_);
  shrink_ = loop_.At(EventLoop::Clock::now() + kIdle, [this] { Shrink(); });
}

// The first one always gets the next job, so the others are those that are too many.
void WorkerPool::Shrink() {
  const auto recently = EventLoop::Clock::now() - kIdle;
  for (auto it = workers_.begin(); it != workers_.end() && workers_.size() > 1;) {
    const WorkerRef worker = it++;
    const bool is_first = worker == workers_.begin();
    if (!is_first && !worker->busy && worker->answered < recently) LetGo(worker, false);
  }
  if (workers_.size() > 1) ShrinkLater();
}

void WorkerPool::Stop() {
  loop_.Cancel(shrink_);
  while (!waiting_.empty()) {
    loop_.Cancel(waiting_.front().timer);
    const Job job = std::move(waiting_.front().job);
    waiting_.pop_front();
    job.done(webapi::kServerBusy, "");
  }
  while (!workers_.empty()) Finish(workers_.begin(), webapi::kServerBusy, "");
}

}  // namespace kalo::webapid
