#pragma once

#include <string>
#include <variant>
#include <vector>

#include "host/webapi/module_description.h"

namespace kalo::webapid {

/// Somebody signed in on the admin port.
struct User {
  std::string name;
  std::vector<std::string> groups;
};

/// A mesh node with a certificate of the mesh's authority.
struct MeshNode {
  int id;
};

/// Who makes a request; std::monostate: nobody known.
using Caller = std::variant<std::monostate, User, MeshNode>;

/// @return whether the row's description names this caller. What it does not name is forbidden.
[[nodiscard]] bool IsAllowed(const webapi::RowDescription& row, const Caller& caller);

}  // namespace kalo::webapid
