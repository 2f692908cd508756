#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"

namespace KALO {

/// Serves one request. The server owns both objects and outlives the call.
using APIHandler = void (*)(APIRequest* request, APIResponse* response);

/// One row of a module's table. A module exports the array as `gTable` and the function
/// `GetAPITable`, without arguments, which returns its address. The server's loader reads this
/// layout straight from there, so it is fixed; it takes the number of rows from the ELF size of
/// the symbol `gTable`.
struct APIRow {
  const char* api;       ///< dotted API name
  std::int32_t version;  ///< the API version that the row answers
  const char* method;
  APIHandler handler;
};

static_assert(sizeof(void*) != 8 || sizeof(APIRow) == 32);
static_assert(sizeof(void*) != 8 || offsetof(APIRow, method) == 16);

}  // namespace KALO
