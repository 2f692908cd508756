#include "services/webapid/row_table.h"

#include <syslog.h>

#include <charconv>
#include <cstddef>

#include "host/core/log.h"

namespace kalo::webapid {
namespace {

constexpr std::string_view kPrefix = "/webapi/";

}  // namespace

std::optional<RowName> ParseRowPath(std::string_view path) {
  if (!path.starts_with(kPrefix)) return std::nullopt;
  path.remove_prefix(kPrefix.size());
  const std::size_t first = path.find('/');
  const std::size_t second =
      first == std::string_view::npos ? std::string_view::npos : path.find('/', first + 1);
  if (second == std::string_view::npos || path.find('/', second + 1) != std::string_view::npos)
    return std::nullopt;
  const std::string_view version = path.substr(first + 1, second - first - 1);
  RowName name{std::string(path.substr(0, first)), 0, std::string(path.substr(second + 1))};
  const char* end = version.data() + version.size();
  const auto parsed = std::from_chars(version.data(), end, name.version);
  if (parsed.ec != std::errc() || parsed.ptr != end || name.version < 1) return std::nullopt;
  // One way to write a version: what is not "1" but reads as 1 is no row.
  if (std::to_string(name.version) != version || name.api.empty() || name.method.empty()) {
    return std::nullopt;
  }
  return name;
}

void RowTable::Add(const webapi::ModuleDescription& module) {
  for (const webapi::RowDescription& row : module.rows) {
    if (!rows_.try_emplace({row.api, row.version, row.method}, row).second) {
      Log(LOG_ERR, "%s: %s %d %s is described elsewhere already", module.library.c_str(),
          row.api.c_str(), row.version, row.method.c_str());
    }
  }
  if (!module.recovery.empty()) recovery_.push_back(module.recovery);
}

const webapi::RowDescription* RowTable::Find(const RowName& name) const {
  const auto row = rows_.find({name.api, name.version, name.method});
  return row == rows_.end() ? nullptr : &row->second;
}

RowTable ReadRowTable(const std::filesystem::path& folder) {
  const webapi::ModuleFolder read = webapi::ReadModuleFolder(folder);
  for (const std::string& error : read.errors) Log(LOG_ERR, "%s", error.c_str());
  RowTable table;
  for (const webapi::ModuleDescription& module : read.modules) table.Add(module);
  return table;
}

}  // namespace kalo::webapid
