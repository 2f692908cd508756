#include "box/node_init/bus_configuration.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <string_view>

#include "host/core/unique_fd.h"

namespace kalo::box {

std::string BusConfiguration() {
  return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=)" +
         std::string(kBusSocket) + R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus"/>
  </policy>
  <includedir>/usr/kalo/share/dbus-1/system.d</includedir>
</busconfig>
)";
}

bool IsBusUp() {
  const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string_view(kBusSocket).copy(address.sun_path, sizeof address.sun_path - 1);
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);  // NOLINT(*-reinterpret-cast)
  return fd && connect(fd.Get(), generic, sizeof address) == 0;
}

}  // namespace kalo::box
