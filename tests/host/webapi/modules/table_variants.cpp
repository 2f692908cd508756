// Tables, good and broken in one way each; VARIANT_… says which one this file becomes.

#include "platform/webapi/api_table.h"

namespace {

[[maybe_unused]] void Answer(KALO::APIRequest* /*request*/, KALO::APIResponse* response) {
  response->SetSuccess(Json::Value());
}

}  // namespace

extern "C" {

void KaloNowhereDefined(KALO::APIRequest* request, KALO::APIResponse* response);

#if defined(VARIANT_odd_size)
extern const char gTable[40];
const char gTable[40] = {};
#elif !defined(VARIANT_no_table)
extern const KALO::APIRow gTable[];
const KALO::APIRow gTable[] = {
#if defined(VARIANT_good) || defined(VARIANT_no_function)
    {"A.B", 1, "one", Answer},
    {"A.B", 2, "two", Answer},
#elif defined(VARIANT_terminated)
    {"A.B", 1, "one", Answer},
    {nullptr, 0, nullptr, nullptr},
    {"A.B", 1, "behind", Answer},
#elif defined(VARIANT_empty)
    {nullptr, 0, nullptr, nullptr},
#elif defined(VARIANT_null_name)
    {"A.B", 1, "one", Answer},
    {nullptr, 1, "two", Answer},
#elif defined(VARIANT_null_handler)
    {"A.B", 1, "one", nullptr},
#elif defined(VARIANT_foreign_name)
    {reinterpret_cast<const char*>(16), 1, "one", Answer},
#elif defined(VARIANT_bad_name)
    {"A.B", 1, "one/two", Answer},
#elif defined(VARIANT_bad_version)
    {"A.B", 0, "one", Answer},
#elif defined(VARIANT_undefined)
    {"A.B", 1, "one", KaloNowhereDefined},
#endif
};
#endif

#if !defined(VARIANT_no_function)
const KALO::APIRow* GetAPITable();
const KALO::APIRow* GetAPITable() {
#if defined(VARIANT_no_table)
  return reinterpret_cast<const KALO::APIRow*>(&GetAPITable);
#else
  return reinterpret_cast<const KALO::APIRow*>(gTable);
#endif
}
#endif
}
