#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <string>

#include "host/webapi/module_description.h"
#include "services/webapid/event_loop.h"
#include "services/webapid/event_stream.h"
#include "services/webapid/request.h"
#include "services/webapid/row_table.h"
#include "services/webapid/worker_pool.h"

namespace kalo::webapid {

/// Rows that can be listened to: as long as anybody listens, a worker is asked once a second, and
/// each answer that differs from the one before goes to all. A hundred pages cost as much as one.
class EventHub {
 public:
  /// @param loop, workers borrowed; outlive the hub, which outlives every request
  EventHub(EventLoop& loop, WorkerPool& workers) : loop_(loop), workers_(workers) {}
  EventHub(const EventHub&) = delete;
  EventHub& operator=(const EventHub&) = delete;
  ~EventHub();

  /// Answers the request with a stream that lasts until the client leaves.
  /// @param may_listen asked before each event; once it says no the stream ends
  void Open(Request& request, std::function<bool()> may_listen);
  /// Ends every stream.
  void Stop();

 private:
  struct Listener {
    EventStream* stream;
    std::function<bool()> may_listen;
  };
  struct Channel {
    const webapi::RowDescription* row = nullptr;
    std::list<Listener> listeners;
    std::string last;  ///< envelope
    int silent = 0;    ///< turns of the timer since something was sent
    bool asking = false;
    EventLoop::TimerId timer{};
  };

  void Ask(Channel& channel);
  void Tell(Channel& channel, const std::string& envelope);
  void BreakSilence(Channel& channel);
  void ShowOut(Channel& channel) const;
  void Leave(Channel& channel, EventStream& stream);

  EventLoop& loop_;
  WorkerPool& workers_;
  std::map<const webapi::RowDescription*, Channel> channels_;
  std::size_t count_ = 0;
};

}  // namespace kalo::webapid
