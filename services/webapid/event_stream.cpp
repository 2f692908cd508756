#include "services/webapid/event_stream.h"

#include <algorithm>
#include <utility>

namespace kalo::webapid {

void EventStream::Send(std::string_view data) {
  next_ = "data: ";
  next_ += data;
  next_ += "\n\n";
  Wake();
}

void EventStream::SendComment() {
  if (!next_.empty()) return;
  next_ = ":\n\n";
  Wake();
}

void EventStream::End() {
  ended_ = true;
  Wake();
}

void EventStream::Wake() {
  if (std::exchange(suspended_, false)) MHD_resume_connection(connection_);
}

ssize_t EventStream::Read(void* self, std::uint64_t /*position*/, char* buffer, std::size_t size) {
  auto& stream = *static_cast<EventStream*>(self);
  if (stream.sent_ == stream.current_.size()) {
    stream.current_ = std::exchange(stream.next_, {});
    stream.sent_ = 0;
  }
  const std::size_t count = std::min(size, stream.current_.size() - stream.sent_);
  if (count == 0) {
    if (stream.ended_) return MHD_CONTENT_READER_END_OF_STREAM;
    stream.suspended_ = true;
    MHD_suspend_connection(stream.connection_);
    return 0;
  }
  stream.current_.copy(buffer, count, stream.sent_);
  stream.sent_ += count;
  return static_cast<ssize_t>(count);
}

}  // namespace kalo::webapid
