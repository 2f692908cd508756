// Stands in for every module of a router: an entry function does nothing but note that it was
// reached, by which request, and which files it was given.
#include <fcntl.h>
#include <json/writer.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <string>
#include <utility>

#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "platform/webapi/api_table.h"
#include "tests/hostile/rows.h"

namespace {

void Note(const std::string& line) {
  const int fd = open(kalo::hostile::kReached, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  (void)!write(fd, line.data(), line.size());
  close(fd);
}

std::string NameOf(const kalo::hostile::Row& row) {
  return std::string(row.api) + "/" + std::to_string(row.version) + "/" + row.method;
}

template <std::size_t kIndex>
void Reached(KALO::APIRequest* request, KALO::APIResponse* response) {
  Json::Value line(Json::objectValue);
  line["row"] = NameOf(kalo::hostile::kRows[kIndex]);
  line["mark"] = request->GetAndCheckString("mark").value_or("");
  line["files"] = Json::Value(Json::arrayValue);
  for (const char* name : kalo::hostile::kFileParameters) {
    // Also one of a type that no server sets.
    const Json::Value file = request->GetParam(name, Json::Value());
    if (!file.isNull()) line["files"].append(file);
  }
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  Note(Json::writeString(builder, line) + "\n");
  response->SetSuccess(Json::Value());
}

template <std::size_t... kIndex>
constexpr auto MakeTable(std::index_sequence<kIndex...> /*all*/) {
  using kalo::hostile::kRows;
  return std::array<KALO::APIRow, sizeof...(kIndex)>{
      {{kRows[kIndex].api, kRows[kIndex].version, kRows[kIndex].method, Reached<kIndex>}...}};
}

}  // namespace

extern "C" {
__attribute__((
    visibility("default"))) extern const std::array<KALO::APIRow, kalo::hostile::kRows.size()>
    gTable;
const std::array<KALO::APIRow, kalo::hostile::kRows.size()> gTable =
    MakeTable(std::make_index_sequence<kalo::hostile::kRows.size()>());

__attribute__((visibility("default"))) const KALO::APIRow* GetAPITable();
const KALO::APIRow* GetAPITable() {
  return gTable.data();
}
}
