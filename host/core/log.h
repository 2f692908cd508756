#pragma once

namespace kalo {

/// Writes one line to the system log. A program names itself once with openlog() in its main.
/// @param priority LOG_ERR: somebody must look; LOG_WARNING: it goes on, but not as asked;
///                 LOG_NOTICE: starts, ends, decisions; LOG_INFO, LOG_DEBUG: for developers
__attribute__((format(printf, 2, 3))) void Log(int priority, const char* format, ...);

}  // namespace kalo
