// The library's one log call.
#pragma once

#include <dlog.h>

namespace lumio {

// The platform has more priorities; the library knows these two.
enum LogPriority { kTrace = 2, kError = 16 };

} // namespace lumio

#define LUMIO_LOG(priority, format, ...) LUMIO_LOG_FOR(__func__, priority, format, ##__VA_ARGS__)

// Logs in the name of another function: for what several exported functions share.
//
// The function and the line stand twice: the platform's log viewer splits a message at the '>' and shows either half
// alone.
#define LUMIO_LOG_FOR(function, priority, format, ...)                                                                 \
  __dlog_print(0, priority, "lumio-kevent", "%s: %s(%d) > [%s:%d] " format "\n", __FILE_NAME__, function, __LINE__,    \
               function, __LINE__, ##__VA_ARGS__)
