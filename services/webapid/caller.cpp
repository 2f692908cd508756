#include "services/webapid/caller.h"

#include <algorithm>

namespace kalo::webapid {
namespace {

using webapi::AllowedCaller;

bool Matches(AllowedCaller allowed, const Caller& caller) {
  const auto* user = std::get_if<User>(&caller);
  const auto* node = std::get_if<MeshNode>(&caller);
  switch (allowed) {
    case AllowedCaller::kAdministrators:
      return user != nullptr && std::find(user->groups.begin(), user->groups.end(),
                                          "administrators") != user->groups.end();
    case AllowedCaller::kMeshNode0:
      return node != nullptr && node->id == 0;
    case AllowedCaller::kMeshNodes:
      return node != nullptr;
  }
  return false;
}

}  // namespace

bool IsAllowed(const webapi::RowDescription& row, const Caller& caller) {
  return std::any_of(row.allow.begin(), row.allow.end(),
                     [&](AllowedCaller allowed) { return Matches(allowed, caller); });
}

}  // namespace kalo::webapid
