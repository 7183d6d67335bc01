// Wraps CLumioStateSubscriber. The library calls its callbacks in the order of their addresses, so thunks cannot stand
// in for them: the trace shows an announcement as one call.
#include <LumioStateSubscriber.h>

#include <cstdio>
#include <cstring>
#include <map>

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

using Callback = CLumioStateSubscriber::StateChangedCallback;

constexpr char kRegister[] = "CLumioStateSubscriber::RegisterLumioStateChangeCb";
constexpr char kUnregister[] = "CLumioStateSubscriber::UnregisterLumioStateChangeCb";
constexpr char kAnnounce[] = "CLumioStateSubscriber::HandleStateChanged";

Next<bool(CLumioStateSubscriber *, Callback, void *)>
    g_register("_ZN21CLumioStateSubscriber26RegisterLumioStateChangeCbEPFv12ELUMIO_STATEPvES1_");
Next<bool(CLumioStateSubscriber *, Callback)>
    g_unregister("_ZN21CLumioStateSubscriber28UnregisterLumioStateChangeCbEPFv12ELUMIO_STATEPvE");
Next<void(ELUMIO_STATE)> g_announce("_ZN21CLumioStateSubscriber18HandleStateChangedE12ELUMIO_STATE");

Registrations &g_registrations = *new Registrations("state callback"); // never destroyed: any thread, until the end
thread_local int g_announcing;                                         // this thread holds the lock of the class

void CheckLock(const char *function, const std::string &module, const void *caller) {
  if (g_announcing > 0) {
    Report({function, "", "", module,
            "called from a callback of CLumioStateSubscriber, which holds viewerMutex: a television hangs here; do it "
            "after the callback has returned"},
           caller);
  }
}

// Collects the names of the modules, which the library logs before each call.
class StateListener : public LogListener {
public:
  void Heard(const char *format, const char *message) override {
    if (strncmp(format, "before [", 8) == 0 && strncmp(message, "before [", 8) == 0) {
      const std::string name(message + 8);
      modules_ += (count_ ? ", " : "") + name.substr(0, name.rfind(']'));
      ++count_;
    }
  }

  const std::string &Modules() const { return modules_; }
  int Count() const { return count_; }

private:
  std::string modules_;
  int count_ = 0;
};

} // namespace

bool CLumioStateSubscriber::RegisterLumioStateChangeCb(StateChangedCallback callback, void *userData) {
  const void *caller = __builtin_return_address(0);
  CheckLock(kRegister, m_moduleName, caller);
  g_registrations.CheckRegister(kRegister, m_moduleName, reinterpret_cast<const void *>(callback), caller);
  const bool registered = g_register(this, callback, userData);
  if (registered) {
    g_registrations.Add(m_moduleName, reinterpret_cast<const void *>(callback));
  }
  return registered;
}

bool CLumioStateSubscriber::UnregisterLumioStateChangeCb(StateChangedCallback callback) {
  const void *caller = __builtin_return_address(0);
  CheckLock(kUnregister, m_moduleName, caller);
  g_registrations.CheckUnregister(kUnregister, m_moduleName, reinterpret_cast<const void *>(callback), caller);
  const bool unregistered = g_unregister(this, callback);
  g_registrations.Remove(reinterpret_cast<const void *>(callback));
  return unregistered;
}

void CLumioStateSubscriber::HandleStateChanged(ELUMIO_STATE state) {
  CheckLock(kAnnounce, "", __builtin_return_address(0));
  Words words;
  words.Set(TheOptions().json ? "\"state\":%d" : "%d", static_cast<int>(state));
  BeginOwn();
  RecordState(static_cast<int>(state));
  Notification notification("state", words);
  StateListener listener;
  Nanoseconds took = 0;
  {
    Work work("", kAnnounce);
    ++g_announcing;
    const InLock held(g_announcing);
    g_announce(state);
    took = work.End();
  }
  if (listener.Count() != 0) {
    notification.ToldAsOne(listener.Modules(), listener.Count(), took);
  } else {
    notification.ToldNobody("no callback");
  }
}

namespace lumio::trace {

void VisitStateCallbacks(const CallbackVisitor &visit) { g_registrations.Visit(visit); }
void PrintStateState(Text &text) { g_registrations.Print(text); }

} // namespace lumio::trace
