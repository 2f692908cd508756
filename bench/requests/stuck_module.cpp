// A module with one row that answers after a second.
#include <chrono>
#include <thread>

#include "platform/webapi/api_table.h"

namespace {

void Sleep(KALO::APIRequest* /*request*/, KALO::APIResponse* response) {
  std::this_thread::sleep_for(std::chrono::seconds(1));
  response->SetSuccess(Json::Value());
}

}  // namespace

extern "C" {
[[gnu::visibility("default")]] extern const KALO::APIRow gTable[];
const KALO::APIRow gTable[] = {{"KALO.Bench", 1, "stuck", Sleep}};

[[gnu::visibility("default")]] const KALO::APIRow* GetAPITable();
const KALO::APIRow* GetAPITable() {
  return gTable;
}
}
