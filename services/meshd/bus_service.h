#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <memory>

#include "services/meshd/mesh_service.h"

namespace kalo::meshd {

/// The mesh service's object on the bus. Replies are those of host/mesh/wire.h.
class BusService {
 public:
  /// Puts the object on the connection and then takes the service's name.
  /// @param connection, service borrowed
  /// @throws sdbus::Error when the name is taken, or the bus does not give it to us.
  BusService(sdbus::IConnection& connection, MeshService& service);
  BusService(const BusService&) = delete;
  BusService& operator=(const BusService&) = delete;
  ~BusService() = default;

 private:
  void RegisterNodeMethods(MeshService& service);
  void RegisterUpdateMethods(MeshService& service);

  std::shared_ptr<sdbus::IObject> object_;  ///< of those too who still owe an answer
};

}  // namespace kalo::meshd
