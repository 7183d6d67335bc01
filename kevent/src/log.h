// The library's one log call.
#pragma once

#include <dlog.h>

namespace lumio {

// The platform has more priorities; the library knows these two.
enum LogPriority { kTrace = 2, kError = 16 };

} // namespace lumio

#define LUMIO_LOG(priority, format, ...) LUMIO_LOG_FOR(__func__, priority, format, ##__VA_ARGS__)

// The source file's name without its folders. Compilers have a macro for it, but not those of older televisions.
#define LUMIO_FILE (__builtin_strrchr("/" __FILE__, '/') + 1)

// Logs in the name of another function: for what several functions share that log filters know.
//
// The function and the line stand twice: the platform's log viewer splits a message at the '>' and shows either half
// alone.
#define LUMIO_LOG_FOR(function, priority, format, ...)                                                                 \
  __dlog_print(0, priority, "lumio-kevent", "%s: %s(%d) > [%s:%d] " format "\n", LUMIO_FILE, function, __LINE__,       \
               function, __LINE__, ##__VA_ARGS__)
