#include "box/event_loop.h"

#include <poll.h>

#include <utility>
#include <vector>

namespace kalo::box {

void EventLoop::Add(int fd, Callback callback) {
  callbacks_[fd] = std::move(callback);
}

void EventLoop::Remove(int fd) {
  callbacks_.erase(fd);
}

void EventLoop::Turn(std::chrono::milliseconds at_most) {
  std::vector<pollfd> polled;
  polled.reserve(callbacks_.size());
  for (const auto& [fd, callback] : callbacks_) polled.push_back({fd, POLLIN, 0});
  if (poll(polled.data(), polled.size(), static_cast<int>(at_most.count())) <= 0) return;
  for (const pollfd& entry : polled) {
    const auto found = callbacks_.find(entry.fd);
    if (entry.revents == 0 || found == callbacks_.end()) continue;
    const Callback callback = found->second;  // a copy: it may remove itself
    callback();
  }
}

}  // namespace kalo::box
