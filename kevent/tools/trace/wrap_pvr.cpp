// Wraps CPvrServiceSubscriber. The library calls its callbacks in the order of their addresses, so thunks cannot stand
// in for them: the trace shows a notification as one call.
#include <PvrServiceSubscriber.h>

#include <cstdio>
#include <cstring>

#include "checks.h"
#include "log_listener.h"
#include "next.h"
#include "notification.h"
#include "player.h"
#include "record.h"
#include "registrations.h"
#include "rooms.h"
#include "session.h"

using namespace lumio::trace;

namespace {

using Subscriber = CPvrServiceSubscriber;
using ResultCallback = CPvrServiceSubscriber::PvrResultCallback;
using StateCallback = CPvrServiceSubscriber::PvrStateCallback;

Next<int(Subscriber *, ResultCallback, void *)>
    g_register("_ZN21CPvrServiceSubscriber13RegisterPvrCbEPFv19ps_result_thirdpartPvES1_");
Next<int(Subscriber *, ResultCallback)>
    g_unregister("_ZN21CPvrServiceSubscriber15UnRegisterPvrCbEPFv19ps_result_thirdpartPvE");
Next<int(Subscriber *, StateCallback, void *)>
    g_register_state("_ZN21CPvrServiceSubscriber18RegisterPvrStateCbEPFb11pvr_state_ePvES1_");
Next<int(Subscriber *, StateCallback)>
    g_unregister_state("_ZN21CPvrServiceSubscriber20UnRegisterPvrStateCbEPFb11pvr_state_ePvE");
Next<void(ps_result_thirdpart, void *)>
    g_told_result("_ZN21CPvrServiceSubscriber13t_PvrResultCBE19ps_result_thirdpartPv");
Next<bool(pvr_state_e, void *)> g_told_state("_ZN21CPvrServiceSubscriber12t_PvrStateCBE11pvr_state_ePv");

Registrations &g_results = *new Registrations("PVR result callback"); // never destroyed: any thread, until the end
Registrations &g_states = *new Registrations("PVR state callback");   // never destroyed: any thread, until the end
thread_local int g_telling;                                           // this thread holds the lock of the class

// Reads from the log what the result of a call does not say.
class PvrListener : public LogListener {
public:
  void Heard(const char *format, const char *) override {
    callbacks_ += strstr(format, "callback function point is") ? 1 : 0;
    refused_ = refused_ || strncmp(format, "call pvr unregister cb failed", 29) == 0;
  }

  int Callbacks() const { return callbacks_; }
  bool WasRefused() const { return refused_; }

private:
  int callbacks_ = 0;
  bool refused_ = false;
};

void CheckLock(const char *function, const std::string &module, const void *caller) {
  if (g_telling > 0) {
    Report({function, "", "", module,
            "called from a callback of CPvrServiceSubscriber, which holds pvrMutex: a television hangs here; do it "
            "after the callback has returned"},
           caller);
  }
}

template <class Callback>
int Register(const char *function, Registrations &registrations, Next<int(Subscriber *, Callback, void *)> &next,
             Subscriber *subscriber, Callback callback, void *data, const void *caller) {
  const std::string module = subscriber->m_moduleName;
  CheckLock(function, module, caller);
  registrations.CheckRegister(function, module, reinterpret_cast<const void *>(callback), caller);
  const int result = next(subscriber, callback, data);
  if (result == 0) {
    registrations.Add(module, reinterpret_cast<const void *>(callback));
  }
  return result;
}

template <class Callback>
int Unregister(const char *function, Registrations &registrations, Next<int(Subscriber *, Callback)> &next,
               Subscriber *subscriber, Callback callback, const void *caller) {
  const std::string module = subscriber->m_moduleName;
  CheckLock(function, module, caller);
  registrations.CheckUnregister(function, module, reinterpret_cast<const void *>(callback), caller);
  PvrListener listener;
  const int result = next(subscriber, callback);
  registrations.Remove(reinterpret_cast<const void *>(callback));
  if (listener.WasRefused()) {
    Report({function, "callback", Describe(SymbolOf(callback)), module,
            "the service refused to unregister the library's callback, but the result reports success"},
           caller);
  }
  return result;
}

// `tell` passes the call on to the library.
template <class Tell> void Told(const char *what, int value, const Registrations &registrations, const Tell &tell) {
  Words words;
  words.Set(TheOptions().json ? "\"%s\":%d" : "%s %d", what, value);
  const std::string modules = registrations.Modules();
  Notification notification("pvr", words);
  PvrListener listener;
  Nanoseconds took = 0;
  {
    Work work("", "callbacks of the PVR service");
    ++g_telling;
    const InLock held(g_telling);
    tell();
    took = work.End();
  }
  if (listener.Callbacks() != 0) {
    notification.ToldAsOne(modules, listener.Callbacks(), took);
  } else {
    notification.ToldNobody("no callback");
  }
  EndServiceCall();
}

} // namespace

int CPvrServiceSubscriber::RegisterPvrCb(PvrResultCallback callback, void *userData) {
  return Register("CPvrServiceSubscriber::RegisterPvrCb", g_results, g_register, this, callback, userData,
                  __builtin_return_address(0));
}

int CPvrServiceSubscriber::UnRegisterPvrCb(PvrResultCallback callback) {
  return Unregister("CPvrServiceSubscriber::UnRegisterPvrCb", g_results, g_unregister, this, callback,
                    __builtin_return_address(0));
}

int CPvrServiceSubscriber::RegisterPvrStateCb(PvrStateCallback callback, void *userData) {
  return Register("CPvrServiceSubscriber::RegisterPvrStateCb", g_states, g_register_state, this, callback, userData,
                  __builtin_return_address(0));
}

int CPvrServiceSubscriber::UnRegisterPvrStateCb(PvrStateCallback callback) {
  return Unregister("CPvrServiceSubscriber::UnRegisterPvrStateCb", g_states, g_unregister_state, this, callback,
                    __builtin_return_address(0));
}

void CPvrServiceSubscriber::t_PvrResultCB(ps_result_thirdpart result, void *userData) {
  if (!Admit(result)) {
    return;
  }
  Told("result", result.result, g_results, [&] { g_told_result(result, userData); });
}

bool CPvrServiceSubscriber::t_PvrStateCB(pvr_state_e state, void *userData) {
  bool told = false;
  if (!Admit(state)) {
    return told;
  }
  Told("state", static_cast<int>(state), g_states, [&] { told = g_told_state(state, userData); });
  return told;
}

namespace lumio::trace {

void VisitPvrCallbacks(const CallbackVisitor &visit) {
  g_results.Visit(visit);
  g_states.Visit(visit);
}

void PrintPvrState(Text &text) {
  g_results.Print(text);
  g_states.Print(text);
}

} // namespace lumio::trace
