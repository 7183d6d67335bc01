// A program that keeps the library's log to itself, so that the tracer hears nothing of it.
#include <Ecore.h>
#include <Ecore_Input.h>
#include <dlog.h>
#include <kevent.h>

#include <cstdlib>

extern "C" int __dlog_print(int, int, const char *, const char *, ...) { return 0; }

// Presses three keys before the main loop is idle.
int main() {
  ecore_app_no_system_modules();
  ecore_init();
  ecore_event_init();
  const auto pass_on = [](lumio_kevent *, lumio_kevent_type, void *, void *) { return 1; };
  lumio_kevent_handler_add(lumio_kevent_init("menu"), LUMIO_KEVENT_PRESS, 0, pass_on, nullptr);
  for (const char *name : {"1", "2", "3"}) {
    auto *key = static_cast<Ecore_Event_Key *>(calloc(1, sizeof(Ecore_Event_Key)));
    key->keyname = name;
    ecore_event_add(ECORE_EVENT_KEY_DOWN, key, nullptr, nullptr);
  }
  ecore_main_loop_iterate();
  ecore_event_shutdown();
  ecore_shutdown();
  return 0;
}
