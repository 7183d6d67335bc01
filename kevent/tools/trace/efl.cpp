// Follows EFL's own counters by wrapping the functions that change them.
#include "efl.h"

#include <atomic>
#include <cstdlib>

#include "checks.h"
#include "next.h"
#include "session.h"
#include "subscriptions.h"

// Declared again, to be visible.
// NOLINTBEGIN(readability-redundant-declaration)
#pragma GCC visibility push(default)
extern "C" {
int eina_init(void);
int eina_shutdown(void);
int ecore_init(void);
int ecore_shutdown(void);
}
#pragma GCC visibility pop
// NOLINTEND(readability-redundant-declaration)

namespace lumio::trace {

namespace {

std::atomic<int> g_eina{0};
std::atomic<int> g_ecore{0};

Next<int()> g_eina_init("eina_init");
Next<int()> g_eina_shutdown("eina_shutdown");
Next<int()> g_ecore_init("ecore_init");
Next<int()> g_ecore_shutdown("ecore_shutdown");
Next<unsigned char()> g_main_loop_is("eina_main_loop_is");
Next<void *()> g_display_get("ecore_x_display_get");

bool IsSet(const char *event_type) {
  const auto *type = static_cast<const int *>(FindVariable(event_type));
  return type && *type != 0;
}

} // namespace

bool IsEcoreEventUp() { return IsSet("ECORE_EVENT_KEY_DOWN"); }

// Calls of a program that looks up EFL's functions itself are not counted, but what it has initialised is still seen.
bool IsEcoreUp() { return g_ecore > 0 || IsEcoreEventUp(); }
bool IsEinaUp() { return g_eina > 0 || IsEcoreUp(); }

bool IsXUp() { return g_display_get.Get() && g_display_get(); }

bool IsXMissing() {
  const char *display = getenv("DISPLAY");
  return display && *display && !IsXUp();
}

bool IsMainLoopThread() { return g_main_loop_is.Get() && g_main_loop_is() != 0; }

} // namespace lumio::trace

using namespace lumio::trace;

extern "C" int eina_init(void) {
  const int count = g_eina_init();
  g_eina = count;
  return count;
}

extern "C" int eina_shutdown(void) {
  const int count = g_eina_shutdown();
  g_eina = count;
  return count;
}

extern "C" int ecore_init(void) {
  const int count = g_ecore_init();
  g_ecore = count;
  ListenForSignal(reinterpret_cast<const void *>(g_ecore_init.Get()));
  return count;
}

extern "C" int ecore_shutdown(void) {
  if (g_ecore == 1) {
    CheckSubscriptionsEnded(__builtin_return_address(0));
  }
  const int count = g_ecore_shutdown();
  g_ecore = count;
  ListenForSignal(reinterpret_cast<const void *>(g_ecore_init.Get()));
  return count;
}
