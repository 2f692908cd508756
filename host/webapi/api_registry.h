#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <tuple>

#include "platform/webapi/api_table.h"

namespace kalo::webapi {

/// The rows of every module that a process has loaded.
class ApiRegistry {
 public:
  /// Adds the rows of one module.
  /// @param source names the module in error texts
  /// @throws ModuleError when a row is there already; nothing is added then
  void Add(std::span<const KALO::APIRow> rows, const std::string& source);

  /// @return the row's entry function; null when no module has it.
  [[nodiscard]] KALO::APIHandler Find(std::string_view api, int version,
                                      std::string_view method) const;

 private:
  using Key = std::tuple<std::string, int, std::string>;
  std::map<Key, KALO::APIHandler> rows_;
};

/// Makes the registry the one that KALO::APIRunner::Exec looks in. The platform call has no
/// argument for it, so a process that loads modules says it once, before the first request.
/// @param registry borrowed until the next call; null: none
void InstallApiRegistry(const ApiRegistry* registry);

}  // namespace kalo::webapi
