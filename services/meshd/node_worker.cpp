#include "services/meshd/node_worker.h"

#include <syslog.h>

#include <exception>
#include <utility>

#include "host/core/log.h"

namespace kalo::meshd {

NodeWorker::NodeWorker(const MeshNode& node, const MakeNodeApi& make_api, NodeEvents& events,
                       std::chrono::milliseconds interval)
    : id_(node.id),
      interval_(interval),
      events_(events),
      api_(make_api(node)),
      thread_([this](const std::stop_token& stop) { Run(stop); }) {}

void NodeWorker::AskNow(std::uint64_t round) {
  const std::lock_guard guard(mutex_);
  round_ = round;
  ask_now_ = true;
  changed_.notify_one();
}

void NodeWorker::Start() {
  const std::lock_guard guard(mutex_);
  start_ = true;
  changed_.notify_one();
}

NodeWorker::Orders NodeWorker::NextOrders(const std::stop_token& stop) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, stop, interval_, [this] { return ask_now_ || start_; });
  ask_now_ = false;
  return {stop.stop_requested(), std::exchange(start_, false), round_};
}

// Whatever goes wrong, somebody waits for the outcome.
StartAnswer NodeWorker::TellToStart() {
  try {
    return api_->Start();
  } catch (const std::exception& e) {
    Log(LOG_ERR, "node %u: %s", id_, e.what());
    return {};
  }
}

void NodeWorker::Run(const std::stop_token& stop) {
  for (;;) {
    const Orders orders = NextOrders(stop);
    if (orders.stop) return;
    // What goes wrong in one turn must not end the service with all other nodes.
    try {
      if (orders.start) events_.OnStartAnswer(id_, TellToStart());
      events_.OnReport(id_, orders.round, api_->Info());
    } catch (const std::exception& e) {
      Log(LOG_ERR, "node %u: %s", id_, e.what());
    }
  }
}

}  // namespace kalo::meshd
