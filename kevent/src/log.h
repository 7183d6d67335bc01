// The library's one log call.
#pragma once

#include <dlog.h>

namespace lumio {

// The platform has more priorities; the library uses these two.
enum LogPriority { kTrace = 2, kError = 16 };

} // namespace lumio

// The file name in every log line: the source file's own name, without its folders. A file that is one room of a larger
// subsystem defines LUMIO_LOG_FILE as the subsystem's front door, "kevent.cpp" for one, before it includes this header:
// log filters know the front doors only. (Compilers have a macro for the bare file name, but those of older televisions
// do not.)
#ifndef LUMIO_LOG_FILE
#define LUMIO_LOG_FILE (__builtin_strrchr("/" __FILE__, '/') + 1)
#endif

#define LUMIO_LOG(priority, format, ...) LUMIO_LOG_FOR(__func__, priority, format, ##__VA_ARGS__)

// Logs in the name of another function: for code that several functions share, or that was split from a function whose
// name log filters know.
//
// The function and the line appear twice because the platform's log viewer splits a message at the '>' and may show
// either half alone.
#define LUMIO_LOG_FOR(function, priority, format, ...)                                                                 \
  __dlog_print(0, priority, "lumio-kevent", "%s: %s(%d) > [%s:%d] " format "\n", LUMIO_LOG_FILE, function, __LINE__,   \
               function, __LINE__, ##__VA_ARGS__)
