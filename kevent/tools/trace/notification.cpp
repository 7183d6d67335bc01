#include "notification.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

#include "session.h"

namespace lumio::trace {

namespace {

thread_local Notification *g_current;

} // namespace

void Words::Set(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text_, sizeof text_, format, arguments);
  va_end(arguments);
}

Notification::Notification(const char *kind, const Words &about, Nanoseconds waited)
    : kind_(kind), about_(about), waited_(waited), outer_(std::exchange(g_current, this)) {}

Notification::~Notification() { g_current = outer_; }

Notification *Notification::Current() { return g_current; }

bool Notification::IsWanted(const std::string &module) const {
  const Options &options = TheOptions();
  const bool others = strcmp(kind_, "banner") == 0 || strcmp(kind_, "state") == 0 || strcmp(kind_, "pvr") == 0;
  return (others ? options.others : options.tv) && !options.dropped &&
         (options.only.empty() || module.find(options.only) != std::string::npos);
}

void Notification::Told(const std::string &module, const std::string &symbol, Nanoseconds took) {
  ++told_;
  Print(module, symbol, took, 1, "");
}

void Notification::ToldAsOne(const std::string &modules, int callbacks, Nanoseconds took) {
  told_ += callbacks;
  Print(modules, "", took, callbacks, "");
}

void Notification::ToldNobody(const char *why) { Print("", "", kNotKnown, 0, why); }

void Notification::Print(const std::string &module, const std::string &symbol, Nanoseconds took, int callbacks,
                         const char *why) {
  if (!IsWanted(module)) {
    return;
  }
  Text text;
  AppendHead(text, WallClock(), kind_);
  if (TheOptions().json) {
    text.Append(",%s,\"module\":", about_.Text());
    text.AppendQuoted(module.c_str());
    text.Append(",\"symbol\":");
    text.AppendQuoted(symbol.c_str());
    text.Append(",\"callbacks\":%d,\"waited_ms\":", callbacks);
    text.AppendMilliseconds(waited_);
    text.Append(",\"took_ms\":");
    text.AppendMilliseconds(took);
    text.Append("}\n");
    Put(text);
    return;
  }
  text.AppendColumn(about_.Text(), 46);
  text.AppendBytes(" ");
  if (*why) {
    text.Append("%s\n", why);
    Put(text);
    return;
  }
  text.AppendColumn(module.c_str(), 14);
  text.AppendDurationColumn(took, 11);
  if (waited_ != kNoWait) {
    text.AppendBytes(" after ");
    text.AppendDuration(waited_);
  }
  if (callbacks != 1) {
    text.Append("  %d callbacks", callbacks);
  }
  if (!symbol.empty()) {
    text.AppendBytes("  ");
    text.AppendClean(symbol.c_str());
  }
  text.AppendBytes("\n");
  Put(text);
}

NotifiedCall::~NotifiedCall() {
  const Nanoseconds took = work_.End();
  target_.Note(took);
  if (Notification *notification = Notification::Current()) {
    notification->Told(target_.module, target_.symbol.name, took);
  }
}

} // namespace lumio::trace
