#include "host/mesh/bus_connection.h"

#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "host/core/log.h"

namespace kalo::mesh {
namespace {

// The error that a reply carries.
class ReplyError {
 public:
  ReplyError() = default;
  ReplyError(const ReplyError&) = delete;
  ReplyError& operator=(const ReplyError&) = delete;
  ~ReplyError() { sd_bus_error_free(&error_); }

  [[nodiscard]] sd_bus_error* Get() { return &error_; }
  [[nodiscard]] bool Is(const char* name) const { return sd_bus_error_has_name(&error_, name) > 0; }
  [[nodiscard]] bool IsSet() const { return sd_bus_error_is_set(&error_) > 0; }
  [[nodiscard]] const char* Text() const {
    return error_.message != nullptr ? error_.message : "no message";
  }

 private:
  sd_bus_error error_{};
};

template <typename TimePoint>
std::uint64_t MicrosecondsUntil(TimePoint deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
      deadline - std::chrono::steady_clock::now());
  return left.count() > 0 ? static_cast<std::uint64_t>(left.count()) : 0;
}

BusUnreachable Unreachable(const char* what, int result) {
  return BusUnreachable(std::string(what) + ": " + std::strerror(-result));
}

MeshCode CodeOfFailure(int result, const ReplyError& error) {
  if (result == -ETIMEDOUT || error.Is(SD_BUS_ERROR_NO_REPLY) || error.Is(SD_BUS_ERROR_TIMEOUT)) {
    return MeshCode::kTimedOut;
  }
  if (error.Is(SD_BUS_ERROR_SERVICE_UNKNOWN) || error.Is(SD_BUS_ERROR_NAME_HAS_NO_OWNER)) {
    return MeshCode::kServiceMissing;
  }
  if (result == -ECONNRESET || result == -ENOTCONN || result == -EPIPE || result == -ECHILD) {
    return MeshCode::kConnectionLost;
  }
  return error.IsSet() ? MeshCode::kErrorReply : MeshCode::kConnectionLost;
}

}  // namespace

BusConnection::BusConnection() {
  sd_bus* bus = nullptr;
  const int result = sd_bus_open_system(&bus);
  if (result < 0) throw Unreachable("cannot reach the system bus", result);
  bus_.reset(bus);
}

// sd_bus_call would authenticate by itself, but waits for that without regard to its time-out.
bool BusConnection::WaitUntilReady(Clock::time_point deadline) {
  for (;;) {
    const int ready = sd_bus_is_ready(bus_.get());
    if (ready > 0) return true;
    const int done = ready < 0 ? ready : sd_bus_process(bus_.get(), nullptr);
    if (done < 0) throw Unreachable("the system bus does not let us in", done);
    if (done > 0) continue;
    const std::uint64_t left = MicrosecondsUntil(deadline);
    if (left == 0) return false;
    const int waited = sd_bus_wait(bus_.get(), left);
    if (waited < 0 && waited != -EINTR) throw Unreachable("cannot wait for the bus", waited);
  }
}

BusReply BusConnection::Call(const char* method, const char* signature) {
  const auto deadline = Clock::now() + kDeadline;
  if (!WaitUntilReady(deadline)) return {MeshCode::kTimedOut, nullptr};

  sd_bus_message* request = nullptr;
  int result = sd_bus_message_new_method_call(bus_.get(), &request, kServiceName, kObjectPath,
                                              kInterface, method);
  const MessagePtr owned_request(request);
  // A service that is down stays down for this call: whoever supervises it starts it.
  if (result >= 0) result = sd_bus_message_set_auto_start(request, 0);
  ReplyError error;
  sd_bus_message* reply = nullptr;
  // A time-out of 0 would mean the library's default.
  const std::uint64_t left = std::max<std::uint64_t>(MicrosecondsUntil(deadline), 1);
  if (result >= 0) result = sd_bus_call(bus_.get(), request, left, error.Get(), &reply);
  MessagePtr owned_reply(reply);
  if (result < 0) {
    const MeshCode code = CodeOfFailure(result, error);
    Log(LOG_WARNING, "mesh service: %s failed: %s (%s)", method, error.Text(),
        std::strerror(-result));
    return {code, nullptr};
  }
  if (sd_bus_message_has_signature(reply, signature) <= 0) {
    Log(LOG_ERR, "mesh service: %s answered other types than \"%s\"", method, signature);
    return {MeshCode::kMalformedReply, nullptr};
  }
  return {MeshCode::kOk, std::move(owned_reply)};
}

}  // namespace kalo::mesh
