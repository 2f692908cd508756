#pragma once

#include <string>

#include "services/webapid/user_store.h"

namespace kalo::webapid {

/// Compares a password with the user's hash. Takes as long for a user that does not exist.
/// @param password without NUL bytes
[[nodiscard]] bool IsPasswordRight(const UserRecords& users, const std::string& user,
                                   const std::string& password);

}  // namespace kalo::webapid
