#pragma once

#include <json/value.h>

#include <set>
#include <string>
#include <vector>

namespace kalo::hostile {

/// Who asks, as the server must see it.
enum class Caller {
  kNobody,
  kUser,           ///< signed in, in no group
  kAdministrator,  ///< signed in, on the admin port
  kNode0,
  kOtherNode,
};

/// A row that the router serves, and whom its description names.
struct KnownRow {
  std::string api;
  int version = 0;
  std::string method;
  std::set<std::string> allow = {};  ///< in the description's words
  bool files = false;
  bool is_front = false;  ///< served by the server itself: no entry function belongs to it

  /// @return as it stands in a path: <api>/<version>/<method>.
  [[nodiscard]] std::string Name() const;
  /// @return whether the caller may reach the row's entry function.
  [[nodiscard]] bool Allows(Caller caller) const;
};

/// @return the rows of all modules, each as it stands in its module's description.
[[nodiscard]] Json::Value ReadDescriptions();

/// @return the same, and those with which one signs in and out.
[[nodiscard]] std::vector<KnownRow> KnownRows(const Json::Value& descriptions);

}  // namespace kalo::hostile
