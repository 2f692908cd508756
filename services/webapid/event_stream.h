#pragma once

#include <microhttpd.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kalo::webapid {

/// One client's answer without end, of server-sent events. It belongs to its request.
class EventStream {
 public:
  /// @param on_gone called by the destructor: the client has left, or was shown out
  EventStream(MHD_Connection* connection, std::function<void(EventStream&)> on_gone)
      : connection_(connection), on_gone_(std::move(on_gone)) {}
  EventStream(const EventStream&) = delete;
  EventStream& operator=(const EventStream&) = delete;
  ~EventStream() { on_gone_(*this); }

  /// Sends data of one line. Each event tells the whole state, so one that a slow client has not
  /// begun to take is replaced: it never holds more than two.
  void Send(std::string_view data);
  /// Sends what clients pass over, so that a dead connection is noticed and a living one stays.
  void SendComment();
  /// Ends the answer after what is under way.
  void End();

  /// The library's content reader; `self` is the stream.
  static ssize_t Read(void* self, std::uint64_t position, char* buffer, std::size_t size);

 private:
  void Wake();

  MHD_Connection* connection_;
  std::function<void(EventStream&)> on_gone_;
  std::string current_;   // what is being sent
  std::size_t sent_ = 0;  // of it
  std::string next_;
  bool ended_ = false;
  bool suspended_ = false;
};

}  // namespace kalo::webapid
