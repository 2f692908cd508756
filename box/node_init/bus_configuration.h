#pragma once

#include <string>

namespace kalo::box {

inline constexpr const char* kBusConfiguration = "/run/dbus/system.conf";
inline constexpr const char* kBusSocket = "/run/dbus/system_bus_socket";

/// @return the configuration of the node's private system bus: nobody owns or calls anything but
///         what the firmware's own policy files allow.
[[nodiscard]] std::string BusConfiguration();

/// @return whether the bus takes connections.
[[nodiscard]] bool IsBusUp();

}  // namespace kalo::box
