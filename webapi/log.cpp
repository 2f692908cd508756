#include "webapi/log.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <string>

namespace KALO::MESH::Webapi {
namespace {

constexpr const char* kSourceName = "webapi_upgrade_handler";

}  // namespace

void Log(int priority, int line, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  va_end(arguments);
  syslog(priority, "%s:%d %s", kSourceName, line, text.c_str());
}

void AnswerException(APIResponse& response, int line, const char* kind,
                     const std::exception& exception, int code) {
  Log(LOG_ERR, line, "%s: %s", kind, exception.what());
  response.SetError(code, Json::Value());
}

}  // namespace KALO::MESH::Webapi
