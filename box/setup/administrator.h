#pragma once

#include <string>

namespace kalo::box {

/// The one user of a sample mesh.
struct Administrator {
  std::string name = "admin";
  std::string password;
};

/// @return an administrator with a new random password of twenty characters.
[[nodiscard]] Administrator MakeAdministrator();

/// @return the users file of a node, with the password hashed by yescrypt.
/// @throws std::runtime_error
[[nodiscard]] std::string UsersJson(const Administrator& administrator);

}  // namespace kalo::box
