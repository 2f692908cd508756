#include "host/webapi/api_registry.h"

#include "host/webapi/module_error.h"

namespace kalo::webapi {

void ApiRegistry::Add(std::span<const KALO::APIRow> rows, const std::string& source) {
  std::map<Key, KALO::APIHandler> added;
  for (const KALO::APIRow& row : rows) {
    const Key key(row.api, row.version, row.method);
    if (rows_.contains(key) || !added.emplace(key, row.handler).second) {
      throw ModuleError(source, std::string(row.api) + " " + std::to_string(row.version) + " " +
                                    row.method + " stands twice");
    }
  }
  rows_.merge(added);
}

KALO::APIHandler ApiRegistry::Find(std::string_view api, int version,
                                   std::string_view method) const {
  const auto row = rows_.find(Key(api, version, method));
  return row == rows_.end() ? nullptr : row->second;
}

}  // namespace kalo::webapi
