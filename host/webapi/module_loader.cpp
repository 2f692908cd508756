#include "host/webapi/module_loader.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "host/webapi/module_error.h"

namespace kalo::webapi {
namespace {

constexpr std::size_t kLongestName = 128;
constexpr int kHighestVersion = 1000;

std::string LoaderMessage() {
  const char* message = dlerror();
  return message == nullptr ? "unknown cause" : message;
}

// Where the module is mapped, and its table's symbol.
struct Table {
  const void* base;
  const KALO::APIRow* rows;
  std::size_t count;
};

const void* AskForTable(void* module, const std::string& file) {
  void* address = dlsym(module, "GetAPITable");
  if (address == nullptr) throw ModuleError(file, "exports no GetAPITable");
  return reinterpret_cast<const KALO::APIRow* (*)()>(address)();
}

// The table has no row that ends it: its symbol tells its size.
Table FindTable(void* module, const std::string& file) {
  const void* address = AskForTable(module, file);
  Dl_info info{};
  void* extra = nullptr;
  const int found = dladdr1(address, &info, &extra, RTLD_DL_SYMENT);
  if (found == 0 || extra == nullptr || info.dli_saddr != address ||
      std::string_view(info.dli_sname) != "gTable") {
    throw ModuleError(file, "GetAPITable does not return an exported gTable");
  }
  const std::size_t size = static_cast<const ElfW(Sym)*>(extra)->st_size;
  if (size == 0 || size % sizeof(KALO::APIRow) != 0) {
    throw ModuleError(file, "gTable's size " + std::to_string(size) + " is no multiple of " +
                                std::to_string(sizeof(KALO::APIRow)));
  }
  return {info.dli_fbase, static_cast<const KALO::APIRow*>(address), size / sizeof(KALO::APIRow)};
}

bool IsNullRow(const KALO::APIRow& row) {
  return row.api == nullptr && row.version == 0 && row.method == nullptr && row.handler == nullptr;
}

bool LiesIn(const Table& table, const void* address) {
  Dl_info info{};
  return address != nullptr && dladdr(address, &info) != 0 && info.dli_fbase == table.base;
}

bool IsName(const char* text) {
  const std::size_t length = strnlen(text, kLongestName + 1);
  if (length == 0 || length > kLongestName) return false;
  return std::all_of(text, text + length, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_';
  });
}

const char* WrongIn(const Table& table, const KALO::APIRow& row) {
  if (row.api == nullptr || row.method == nullptr) return "a name is null";
  if (!LiesIn(table, row.api) || !LiesIn(table, row.method)) return "a name is not the module's";
  if (!IsName(row.api)) return "the API name is malformed";
  if (!IsName(row.method)) return "the method name is malformed";
  if (row.version < 1 || row.version > kHighestVersion) return "the version is out of range";
  if (row.handler == nullptr) return "the handler is null";
  if (!LiesIn(table, reinterpret_cast<const void*>(row.handler))) {
    return "the handler is not the module's";
  }
  return nullptr;
}

}  // namespace

std::span<const KALO::APIRow> LoadModule(const std::filesystem::path& file) {
  void* module = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) throw ModuleError(file, LoaderMessage());
  const Table table = FindTable(module, file);
  std::size_t rows = 0;
  for (; rows < table.count && !IsNullRow(table.rows[rows]); ++rows) {
    if (const char* wrong = WrongIn(table, table.rows[rows]); wrong != nullptr) {
      throw ModuleError(file, "row " + std::to_string(rows + 1) + ": " + wrong);
    }
  }
  if (rows == 0) throw ModuleError(file, "gTable is empty");
  return {table.rows, rows};
}

}  // namespace kalo::webapi
