#include "checks.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <utility>

#include "efl.h"
#include "session.h"
#include "symbols.h"

namespace lumio::trace {

namespace {

// By function, what is wrong, and place.
std::map<std::pair<std::string, const void *>, int> &g_seen =
    *new std::map<std::pair<std::string, const void *>, int>; // never destroyed: threads outlive the end of main

bool IsNew(const Mistake &mistake, const void *caller) {
  const Lock lock;
  constexpr size_t kMostPlaces = 1000;
  const std::pair key(std::string(mistake.function) + mistake.argument + mistake.advice, caller);
  if (g_seen.size() >= kMostPlaces && g_seen.count(key) == 0) {
    return false;
  }
  return ++g_seen[key] == 1;
}

void AppendText(Text &text, const Mistake &mistake, const Symbol &caller) {
  AppendHead(text, WallClock(), "MISTAKE");
  text.Append("%s", mistake.function);
  if (!mistake.argument.empty()) {
    text.Append("(%s = ", mistake.argument.c_str());
    text.AppendClean(mistake.value.c_str());
    text.Append(")");
  }
  if (!mistake.module.empty()) {
    text.Append(", module ");
    text.AppendClean(mistake.module.c_str());
  }
  text.Append(", called by ");
  text.AppendClean(Describe(caller).c_str());
  text.Append("\n%s%s\n", kEnd, mistake.advice.c_str());
}

void AppendJson(Text &text, const Mistake &mistake, const Symbol &caller) {
  AppendHead(text, WallClock(), "mistake");
  for (const auto &[name, value] :
       {std::pair("function", std::string(mistake.function)), std::pair("argument", mistake.argument),
        std::pair("value", mistake.value), std::pair("module", mistake.module), std::pair("caller", caller.name),
        std::pair("object", caller.object), std::pair("advice", mistake.advice)}) {
    text.Append(",\"%s\":", name);
    text.AppendQuoted(value.c_str());
  }
  text.Append("}\n");
}

} // namespace

void Report(const Mistake &mistake, const void *caller) {
  const int error = errno;
  if (IsNew(mistake, caller)) {
    const Symbol symbol = SymbolOf(caller);
    Text text;
    if (TheOptions().json) {
      AppendJson(text, mistake, symbol);
    } else {
      AppendText(text, mistake, symbol);
    }
    Put(text);
  }
  if (TheOptions().abort) {
    abort();
  }
  errno = error;
}

bool CheckEina(const char *function, const void *caller) {
  if (IsEinaUp()) {
    return true;
  }
  Report({function, "", "", "", "EFL is not initialised, and its lists crash without that: call ecore_init() first"},
         caller);
  return false;
}

bool CheckEcore(const char *function, const void *caller) {
  if (IsEcoreUp()) {
    return true;
  }
  Report({function, "", "", "",
          "Ecore is not initialised: call ecore_init() first, and keep it initialised for as long as modules run"},
         caller);
  return false;
}

bool CheckMainLoop(const char *function, const std::string &module, const void *caller) {
  if (!IsEcoreUp() || IsMainLoopThread()) {
    return true;
  }
  Report({function, "", "", module,
          "called off the main-loop thread, which is not safe: pass the call to the main loop with "
          "ecore_main_loop_thread_safe_call_async()"},
         caller);
  return false;
}

std::string Pointer(const void *pointer) {
  char text[24];
  snprintf(text, sizeof text, "%p", pointer);
  return pointer ? text : "null";
}

std::string Quoted(const char *text) { return text ? '"' + std::string(text) + '"' : "null"; }

} // namespace lumio::trace
