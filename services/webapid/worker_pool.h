#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <string>

#include "host/core/unique_fd.h"
#include "host/webapi/module_description.h"
#include "services/webapid/child_watch.h"
#include "services/webapid/event_loop.h"
#include "services/webapid/patience.h"

namespace kalo::webapid {

/// One request for a worker.
struct Job {
  std::string message;                          ///< as worker_channel.h describes it
  const webapi::RowDescription* row = nullptr;  ///< borrowed; outlives the pool
  /// Called once: with code 0 and the envelope, or with the error of the server itself. May run
  /// before Submit returns.
  std::function<void(int code, std::string envelope)> done;
};

/// The workers behind one port. Grows on demand to its limit, and becomes small again when there is
/// less to do; the last free worker is kept for polls, so that a status page answers while long
/// requests run.
class WorkerPool {
 public:
  struct Options {
    std::string program;  ///< absolute path of the worker
    std::size_t limit = 2;
    /// A worker whose request forked has gone, or one that did not end by itself: what it worked at
    /// may be half done.
    std::function<void()> on_gone;
  };

  /// @param loop, children borrowed; outlive the pool
  WorkerPool(EventLoop& loop, ChildWatch& children, Options options);
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;
  ~WorkerPool();

  /// Gives the job to a worker. Without a free one a poll waits for its turn, a second at most:
  /// polls take moments, and many pages may ask at once. Every other job is done at once with the
  /// error "server busy", as are polls beyond those that may wait.
  void Submit(Job job);

  /// Ends every job with "server busy" and lets the workers go; each ends after its request.
  void Stop();

 private:
  struct Worker {
    pid_t pid = -1;
    UniqueFd channel;
    EventLoop::WatchId watch = 0;
    EventLoop::TimerId timer{};
    bool busy = false;
    bool started = false;  ///< has answered before
    EventLoop::Clock::time_point answered{};
    Job job;
  };
  using WorkerRef = std::list<Worker>::iterator;

  /// A poll that waits for a worker.
  struct Waiting {
    Job job;
    EventLoop::TimerId timer{};
  };

  [[nodiscard]] static bool IsPoll(const Job& job) { return job.row->poll || job.row->stream; }
  [[nodiscard]] bool MayTake(const Job& job) const;
  /// @return the end when no worker takes it; the job then is still the caller's.
  [[nodiscard]] WorkerRef GiveToSomebody(Job& job);
  /// @return whether it did; then the job is over.
  [[nodiscard]] bool AnswersAtOnce(WorkerRef worker);
  void StartTimer(WorkerRef worker);
  void Wait(Job job);
  void ShrinkLater();
  void Shrink();
  void ServeWaiting();
  [[nodiscard]] WorkerRef FindIdle();
  [[nodiscard]] WorkerRef Start();
  [[nodiscard]] bool Give(WorkerRef worker, Job& job);
  /// @return whether the worker's job is over.
  bool OnReadable(WorkerRef worker);
  void OnTimeLimit(WorkerRef worker);
  void Finish(WorkerRef worker, int code, std::string envelope);
  void LetGo(WorkerRef worker, bool retired);

  EventLoop& loop_;
  ChildWatch& children_;
  Options options_;
  std::list<Worker> workers_;
  std::list<Waiting> waiting_;
  EventLoop::TimerId shrink_{};
  std::map<const webapi::RowDescription*, Patience> patience_;
};

}  // namespace kalo::webapid
