#include "own_work.h"

#include <Ecore.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "efl.h"
#include "next.h"
#include "player.h"
#include "record.h"
#include "symbols.h"

namespace lumio::trace {

namespace {

Next<Ecore_Timer *(double, Ecore_Task_Cb, const void *)> g_timer_add("ecore_timer_add");
Next<Ecore_Timer *(double, Ecore_Task_Cb, const void *)> g_timer_loop_add("ecore_timer_loop_add");
Next<void *(Ecore_Timer *)> g_timer_del("ecore_timer_del");
Next<void(Ecore_Timer *)> g_timer_freeze("ecore_timer_freeze");
Next<void(Ecore_Timer *)> g_timer_thaw("ecore_timer_thaw");
Next<void(Ecore_Timer *)> g_timer_reset("ecore_timer_reset");
Next<void(Ecore_Cb, void *)> g_call_async("ecore_main_loop_thread_safe_call_async");

constexpr const char *kEflLibraries[] = {"libecore",      "libedje",    "libefl", "libeina",   "libeio", "libeldbus",
                                         "libelementary", "libemotion", "libeo.", "libethumb", "libevas"};

struct Timer {
  std::string function;
  int number;
  Ecore_Task_Cb run;
  const void *data;
  Ecore_Timer *handle;
  bool is_held; // has expired before its place in the recording
};

struct Call {
  std::string function;
  Ecore_Cb run;
  void *data;
};

// never destroyed: modules use timers as late as at exit
auto &g_timers = *new std::vector<std::shared_ptr<Timer>>; // used on the main-loop thread only
auto &g_numbers = *new std::map<std::string, int>;         // by function; used on the main-loop thread only
auto &g_calls = *new std::list<std::unique_ptr<Call>>;     // that wait for their place in the recording
std::mutex &g_calls_mutex = *new std::mutex;

// EFL has timers of its own, which decide nothing; a replay has others.
bool IsOfEfl(const void *address) {
  Dl_info info;
  if (!dladdr(address, &info) || !info.dli_fname) {
    return false;
  }
  const char *slash = strrchr(info.dli_fname, '/');
  const char *name = slash ? slash + 1 : info.dli_fname;
  return strstr(info.dli_fname, "/evas/modules/") || strstr(info.dli_fname, "/ecore_") ||
         std::any_of(std::begin(kEflLibraries), std::end(kEflLibraries),
                     [name](const char *library) { return strncmp(name, library, strlen(library)) == 0; });
}

bool IsOfProgram(const void *caller) {
  return (IsRecording() || IsReplaying()) && !IsInLibrary(caller) && !IsOfEfl(caller);
}

// --- Timers ----------------------------------------------------------------------------------------------------------

template <class Predicate> std::shared_ptr<Timer> FindTimer(Predicate predicate) {
  const auto found = std::find_if(g_timers.begin(), g_timers.end(), predicate);
  return found == g_timers.end() ? nullptr : *found;
}

std::shared_ptr<Timer> TimerOf(const Ecore_Timer *handle) {
  return FindTimer([handle](const auto &timer) { return timer->handle == handle; });
}

// Returns whether the program had not deleted it.
bool Forget(const std::shared_ptr<Timer> &timer) {
  const auto found = std::find(g_timers.begin(), g_timers.end(), timer);
  if (found == g_timers.end()) {
    return false;
  }
  g_timers.erase(found);
  return true;
}

Eina_Bool RunNow(const Timer &timer) {
  RecordTimer(timer.function, timer.number);
  return timer.run(const_cast<void *>(timer.data));
}

Eina_Bool OnTimer(void *data) {
  const std::shared_ptr<Timer> timer = FindTimer([data](const auto &one) { return one.get() == data; });
  if (IsInRecordedOrder()) {
    timer->is_held = true;
    g_timer_freeze(timer->handle);
    return ECORE_CALLBACK_RENEW;
  }
  const Eina_Bool again = RunNow(*timer);
  if (!again) {
    Forget(timer);
  }
  return again;
}

// Ecore uses the address again after it has deleted a timer itself, at its shutdown.
Ecore_Timer *AddTimer(Next<Ecore_Timer *(double, Ecore_Task_Cb, const void *)> &add, double seconds, Ecore_Task_Cb run,
                      const void *data, const void *caller) {
  if (!run || !IsMainLoopThread() || !IsOfProgram(caller)) {
    return add(seconds, run, data);
  }
  const std::string function = SymbolOf(run).name;
  const auto timer = std::make_shared<Timer>(Timer{function, ++g_numbers[function], run, data, nullptr, false});
  timer->handle = add(seconds, OnTimer, timer.get());
  if (const std::shared_ptr<Timer> old = TimerOf(timer->handle)) {
    Forget(old);
  }
  if (timer->handle) {
    g_timers.push_back(timer);
  }
  return timer->handle;
}

void Thaw(Timer &timer) {
  if (timer.is_held) {
    timer.is_held = false;
    g_timer_thaw(timer.handle);
  }
}

// --- Calls -----------------------------------------------------------------------------------------------------------

void RunNow(const Call &call) {
  RecordCall(call.function);
  call.run(call.data);
}

void OnCall(void *data) {
  std::unique_ptr<Call> call(static_cast<Call *>(data));
  if (!IsInRecordedOrder()) {
    RunNow(*call);
    return;
  }
  const std::lock_guard<std::mutex> lock(g_calls_mutex);
  g_calls.push_back(std::move(call));
}

// Call it with the lock held.
auto FindCall(const std::string &function) {
  return std::find_if(g_calls.begin(), g_calls.end(), [&](const auto &call) { return call->function == function; });
}

} // namespace

void RunTimer(const std::string &function, int number) {
  const std::shared_ptr<Timer> timer =
      FindTimer([&](const auto &one) { return one->function == function && one->number == number; });
  if (!timer) {
    return;
  }
  const Eina_Bool again = RunNow(*timer);
  if (again && TimerOf(timer->handle) == timer) {
    Thaw(*timer);
    g_timer_reset(timer->handle);
  } else if (!again && Forget(timer)) {
    g_timer_del(timer->handle);
  }
}

void RunCall(const std::string &function) {
  std::unique_ptr<Call> call;
  {
    const std::lock_guard<std::mutex> lock(g_calls_mutex);
    const auto found = FindCall(function);
    if (found == g_calls.end()) {
      return;
    }
    call = std::move(*found);
    g_calls.erase(found);
  }
  RunNow(*call);
}

void LetTimersRun() {
  for (const std::shared_ptr<Timer> &timer : g_timers) {
    Thaw(*timer);
  }
}

bool IsCallWaiting(const std::string &function) {
  const std::lock_guard<std::mutex> lock(g_calls_mutex);
  return FindCall(function) != g_calls.end();
}

} // namespace lumio::trace

using namespace lumio::trace;

extern "C" {

__attribute__((visibility("default"))) Ecore_Timer *ecore_timer_add(double in, Ecore_Task_Cb func, const void *data) {
  return AddTimer(g_timer_add, in, func, data, __builtin_return_address(0));
}

__attribute__((visibility("default"))) Ecore_Timer *ecore_timer_loop_add(double in, Ecore_Task_Cb func,
                                                                         const void *data) {
  return AddTimer(g_timer_loop_add, in, func, data, __builtin_return_address(0));
}

// Returns the program's data.
__attribute__((visibility("default"))) void *ecore_timer_del(Ecore_Timer *timer) {
  const std::shared_ptr<Timer> known = IsMainLoopThread() ? TimerOf(timer) : nullptr;
  if (!known || !Forget(known)) {
    return g_timer_del(timer);
  }
  g_timer_del(timer);
  return const_cast<void *>(known->data);
}

// Ecore calls it at once on the main-loop thread.
__attribute__((visibility("default"))) void ecore_main_loop_thread_safe_call_async(Ecore_Cb callback, void *data) {
  if (!callback || IsMainLoopThread() || !IsOfProgram(__builtin_return_address(0))) {
    g_call_async(callback, data);
  } else {
    g_call_async(OnCall, new Call{SymbolOf(callback).name, callback, data});
  }
}

} // extern "C"
