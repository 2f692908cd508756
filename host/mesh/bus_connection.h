#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <memory>
#include <stdexcept>

#include "host/mesh/wire.h"

namespace kalo::mesh {

/// The system bus cannot be reached: nothing listens there, or it does not let this process in.
class BusUnreachable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct MessageDeleter {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using MessagePtr = std::unique_ptr<sd_bus_message, MessageDeleter>;

/// A call's outcome.
struct BusReply {
  MeshCode code = MeshCode::kOk;
  MessagePtr message;  ///< null unless code is kOk
};

/// A connection of its own to the system bus (DBUS_SYSTEM_BUS_ADDRESS, else the usual socket), for
/// calls to the mesh service. No thread stands behind it: requests fork, and a child that inherited
/// a lock held by a thread it does not have would hang for ever. Belongs to the process that made
/// it.
class BusConnection {
 public:
  /// How long one call may take, authentication included. Connecting does not wait: the bus is a
  /// local socket.
  static constexpr std::chrono::seconds kDeadline{5};

  /// @throws BusUnreachable
  BusConnection();

  /// Calls a method of the mesh service and waits for its reply.
  /// @param signature the types that the reply must have
  /// @throws BusUnreachable when the bus refuses this process
  [[nodiscard]] BusReply Call(const char* method, const char* signature);

 private:
  using Clock = std::chrono::steady_clock;

  // @return whether the bus let us in before the deadline.
  [[nodiscard]] bool WaitUntilReady(Clock::time_point deadline);

  // Without a flush, which would wait for a bus that never lets us in; nothing is left to send.
  struct BusDeleter {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  };
  std::unique_ptr<sd_bus, BusDeleter> bus_;
};

}  // namespace kalo::mesh
