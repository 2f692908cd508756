// Stands in for every module of a router: an entry function does nothing but note that it was
// reached, by which request, and which files it was given.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <string>

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

void Reached(KALO::APIRequest* request, KALO::APIResponse* response) {
  std::string line = request->GetAndCheckString("mark").value_or("-");
  for (const char* name : kalo::hostile::kFileParameters) {
    const std::string file = request->GetAndCheckString(name).value_or("");
    if (!file.empty()) line += " " + file;
  }
  Note(line + "\n");
  response->SetSuccess(Json::Value());
}

constexpr auto MakeTable() {
  std::array<KALO::APIRow, kalo::hostile::kRows.size()> table{};
  for (std::size_t i = 0; i < table.size(); ++i) {
    const kalo::hostile::Row& row = kalo::hostile::kRows[i];
    table[i] = {row.api, row.version, row.method, Reached};
  }
  return table;
}

}  // namespace

extern "C" {
__attribute__((
    visibility("default"))) extern const std::array<KALO::APIRow, kalo::hostile::kRows.size()>
    gTable;
const std::array<KALO::APIRow, kalo::hostile::kRows.size()> gTable = MakeTable();

__attribute__((visibility("default"))) const KALO::APIRow* GetAPITable();
const KALO::APIRow* GetAPITable() {
  return gTable.data();
}
}
