#include "host/core/log.h"

#include <syslog.h>

#include <cerrno>
#include <cstdarg>

namespace kalo {

void Log(int priority, const char* format, ...) {
  // A log line on the way out of a failed call must not hide the call's own error.
  const int saved = errno;
  va_list arguments;
  va_start(arguments, format);
  vsyslog(priority, format, arguments);
  va_end(arguments);
  errno = saved;
}

}  // namespace kalo
