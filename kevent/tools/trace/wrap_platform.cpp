// Wraps functions that the library calls, to learn what the library's own functions do not report, and dlclose.
#include <Ecore.h>
#include <dlfcn.h>
#include <dlog.h>
#include <sys/prctl.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "checks.h"
#include "devices.h"
#include "log_listener.h"
#include "next.h"
#include "player.h"
#include "record.h"
#include "rooms.h"
#include "session.h"
#include "symbols.h"
#include "work.h"

using namespace lumio::trace;

namespace {

constexpr char kTag[] = "lumio-kevent";
constexpr char kBeforeMessage[] = "%s: %s(%d) > [%s:%d] "; // in front of the library's own format
constexpr size_t kBeforeMessageSize = sizeof kBeforeMessage - 1;
constexpr int kTraceMark = 666; // the platform's prctl option

thread_local LogListener *g_listener;

Next<int(int, unsigned long, unsigned long, unsigned long, unsigned long)> g_prctl("prctl");
Next<int(void *)> g_dlclose("dlclose");

Next<Ecore_Idle_Enterer *(Ecore_Task_Cb, const void *)> g_idle_enterer_add("ecore_idle_enterer_add");
Ecore_Task_Cb g_idle_callback; // the library's own

Eina_Bool OnIdle(void *data) {
  NoteIdle();
  if (BeginTimes()) {
    RecordDevice(LearnDevice());
    StartReplay();
  }
  if (!NoteReplayIdle()) {
    return ECORE_CALLBACK_RENEW;
  }
  RecordIdle();
  return g_idle_callback(data);
}

using LogFunction = int (*)(int, int, const char *, const char *, ...);

LogFunction NextLog() {
  static Next<int(int, int, const char *, const char *)> next("__dlog_print");
  return reinterpret_cast<LogFunction>(next.Get());
}

void TellListener(const char *tag, const char *format, const char *text) {
  if (!g_listener || !tag || strcmp(tag, kTag) != 0 || strncmp(format, kBeforeMessage, kBeforeMessageSize) != 0) {
    return;
  }
  const char *mark = strstr(text, " > [");
  const char *message = mark ? strstr(mark, "] ") : nullptr;
  g_listener->Heard(format + kBeforeMessageSize, message ? message + 2 : "");
}

// Reports callbacks of objects that have been unloaded.
void CheckLeftBehind(const void *caller) {
  struct Left {
    std::string what;
    std::string module;
    Symbol symbol;
  };
  static auto &told = *new std::map<const void *, const void *>; // never destroyed: modules log as late as at exit
  std::vector<Left> left;
  {
    const Lock lock;
    const CallbackVisitor visit = [&](const char *what, const std::string &module, const Symbol &symbol,
                                      const void *address) {
      Dl_info info;
      const bool there = dladdr(address, &info) && info.dli_fbase == symbol.base;
      if (!there && symbol.base && told[address] != symbol.base) {
        told[address] = symbol.base;
        left.push_back({what, module, symbol});
      }
    };
    VisitKeyCallbacks(visit);
    VisitBannerCallbacks(visit);
    VisitPvrCallbacks(visit);
    VisitStateCallbacks(visit);
    VisitTvCallbacks(visit);
  }
  for (const Left &one : left) {
    Report({"dlclose", one.what, Describe(one.symbol), one.module,
            one.symbol.object + " is unloaded and this is still registered: its next call crashes; delete it before"},
           caller);
  }
}

} // namespace

namespace lumio::trace {

LogListener::LogListener() : outer_(g_listener) { g_listener = this; }
LogListener::~LogListener() { g_listener = outer_; }

void TellLibraryIdle() {
  if (g_idle_callback) {
    RecordIdle();
    g_idle_callback(nullptr); // which is what the library passes
  }
}

} // namespace lumio::trace

// The platform has no variant that takes a va_list, so the message is formatted here.
extern "C" __attribute__((visibility("default"))) int __dlog_print(int log_id, int priority, const char *tag,
                                                                   const char *format, ...) {
  const int error = errno;
  char buffer[2048];
  char *text = buffer;
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(buffer, sizeof buffer, format, arguments);
  va_end(arguments);
  if (length >= static_cast<int>(sizeof buffer)) {
    va_start(arguments, format);
    if (vasprintf(&text, format, arguments) < 0) {
      text = buffer;
    }
    va_end(arguments);
  }
  TellListener(tag, format, text);
  const LogFunction next = NextLog();
  errno = error;
  const int written = next ? next(log_id, priority, tag, "%s", text) : -1;
  if (text != buffer) {
    const int after = errno;
    free(text);
    errno = after;
  }
  return written;
}

extern "C" __attribute__((visibility("default"))) int prctl(int option, ...) {
  va_list arguments;
  va_start(arguments, option);
  unsigned long values[4];
  for (unsigned long &value : values) {
    value = va_arg(arguments, unsigned long);
  }
  va_end(arguments);
  const auto *mark = reinterpret_cast<const char *>(values[0]); // NOLINT(performance-no-int-to-ptr): prctl's arguments
  if (option == kTraceMark && mark && strcmp(mark, "[lumio] end _key_cb") == 0) {
    NoteWalkEnded();
  }
  return g_prctl(option, values[0], values[1], values[2], values[3]);
}

extern "C" __attribute__((visibility("default"))) Ecore_Event_Handler *
ecore_event_handler_add(int type, Ecore_Event_Handler_Cb func, const void *data) {
  return AddEventHandler(type, func, data, __builtin_return_address(0));
}

extern "C" __attribute__((visibility("default"))) Ecore_Idle_Enterer *ecore_idle_enterer_add(Ecore_Task_Cb func,
                                                                                             const void *data) {
  if (!IsInLibrary(__builtin_return_address(0))) {
    return g_idle_enterer_add(func, data);
  }
  g_idle_callback = func;
  return g_idle_enterer_add(OnIdle, data);
}

extern "C" __attribute__((visibility("default"))) void ecore_main_loop_begin(void) {
  static Next<void()> next("ecore_main_loop_begin");
  next();
  RecordEnd();
  EndReplay();
}

extern "C" __attribute__((visibility("default"))) int dlclose(void *handle) {
  const int result = g_dlclose(handle);
  ++g_unloads;
  CheckLeftBehind(__builtin_return_address(0));
  return result;
}
