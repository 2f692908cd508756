#include "host/webapi/module_description.h"

#include <algorithm>
#include <system_error>

#include "host/core/object_reader.h"
#include "host/webapi/module_error.h"

namespace kalo::webapi {
namespace {

namespace fs = std::filesystem;

constexpr int kLongestTimeout = 86400;
constexpr int kDefaultTimeout = 60;

AllowedCaller ParseAllowed(const Json::Value& value, const ObjectReader& row) {
  if (value == Json::Value("administrators")) return AllowedCaller::kAdministrators;
  if (value == Json::Value("mesh_node_0")) return AllowedCaller::kMeshNode0;
  if (value == Json::Value("mesh_nodes")) return AllowedCaller::kMeshNodes;
  row.Fail("allow", "holds something else than administrators, mesh_node_0, mesh_nodes");
}

RowDescription ParseRow(const Json::Value& value, const std::string& name) {
  ObjectReader reader(value, name);
  RowDescription row;
  row.api = reader.Text("api");
  row.version = reader.Integer("version", 1, 1000);
  row.method = reader.Text("method");
  for (const Json::Value& caller : reader.Array("allow")) {
    row.allow.push_back(ParseAllowed(caller, reader));
  }
  row.timeout =
      std::chrono::seconds(reader.Integer("timeout_s", 1, kLongestTimeout, kDefaultTimeout));
  row.poll = reader.Boolean("poll", false);
  row.files = reader.Boolean("files", false);
  row.stream = reader.Boolean("stream", false);
  reader.Finish();
  if (row.api.empty()) reader.Fail("api", "is empty");
  if (row.method.empty()) reader.Fail("method", "is empty");
  return row;
}

fs::path ParseLibrary(ObjectReader& reader, const fs::path& folder) {
  const fs::path library = reader.Text("library");
  if (library.empty() || library != library.filename() || library.extension() != ".so") {
    reader.Fail("library", "must be the name of a .so file in the same folder");
  }
  return folder / library;
}

fs::path ParseRecovery(ObjectReader& reader) {
  fs::path recovery = reader.Text("recovery", "");
  if (!recovery.empty() && !recovery.is_absolute()) {
    reader.Fail("recovery", "must be the absolute path of a program");
  }
  return recovery;
}

ModuleDescription Describe(const Json::Value& value, const fs::path& file) {
  ObjectReader reader(value, file);
  ModuleDescription module;
  module.library = ParseLibrary(reader, file.parent_path());
  module.recovery = ParseRecovery(reader);
  const Json::Value& rows = reader.Array("rows");
  reader.Finish();
  for (Json::ArrayIndex i = 0; i < rows.size(); ++i) {
    module.rows.push_back(ParseRow(rows[i], file.string() + ": row " + std::to_string(i + 1)));
  }
  return module;
}

ModuleDescription ReadModuleDescription(const fs::path& file) {
  return Describe(ReadJsonFile(file), file);
}

}  // namespace

ModuleDescription ParseModuleDescription(const std::string& text, const fs::path& file) {
  try {
    return Describe(ParseJsonText(text, file), file);
  } catch (const FormatError& e) {
    throw ModuleError(e.what());
  }
}

ModuleFolder ReadModuleFolder(const fs::path& folder) {
  ModuleFolder result;
  std::vector<fs::path> files;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (entry->path().extension() == ".json") files.push_back(entry->path());
  }
  if (error) result.errors.push_back(folder.string() + ": " + error.message());
  std::sort(files.begin(), files.end());
  for (const fs::path& file : files) {
    try {
      result.modules.push_back(ReadModuleDescription(file));
    } catch (const FormatError& e) {
      result.errors.emplace_back(e.what());
    }
  }
  return result;
}

}  // namespace kalo::webapi
