#include "bench/requests/bus_calls.h"

#include <systemd/sd-bus.h>

#include <initializer_list>

#include "host/mesh/wire.h"

namespace kalo::bench {
namespace {

bool CallOnOneConnection(std::initializer_list<const char*> methods) {
  sd_bus* bus = nullptr;
  if (sd_bus_open_system(&bus) < 0) return false;
  bool answered = true;
  for (const char* method : methods) {
    sd_bus_message* reply = nullptr;
    answered = sd_bus_call_method(bus, mesh::kServiceName, mesh::kObjectPath, mesh::kInterface,
                                  method, nullptr, &reply, "") >= 0 &&
               answered;
    sd_bus_message_unref(reply);
  }
  sd_bus_flush_close_unref(bus);
  return answered;
}

}  // namespace

bool CallForStatus() {
  return CallOnOneConnection(
             {mesh::method::kGetNodeInfos, mesh::method::kGetRepeaterAccessInfos}) &&
         CallOnOneConnection({mesh::method::kGetMeshSystemStatus});
}

bool CallForUpgrade() {
  return CallOnOneConnection({mesh::method::kGetSystemUpdateProgressV2});
}

}  // namespace kalo::bench
