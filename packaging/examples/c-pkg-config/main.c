/* Sends a key through the main loop to a handler, in C. */
#include <Ecore.h>
#include <Ecore_Input.h>
#include <kevent.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int on_press(lumio_kevent *kevent, lumio_kevent_type type, void *event_info, void *data) {
  const Ecore_Event_Key *key = event_info;
  (void)kevent;
  *(int *)data = type == LUMIO_KEVENT_PRESS && key->keyname && strcmp(key->keyname, "Return") == 0;
  return 0;
}

int main(void) {
  int taken = 0;
  lumio_kevent *kevent;
  Ecore_Event_Key *key = calloc(1, sizeof *key);
  if (!key) {
    return 1;
  }
  ecore_app_no_system_modules();
  ecore_init();
  ecore_event_init();

  kevent = lumio_kevent_init("example");
  lumio_kevent_handler_add(kevent, LUMIO_KEVENT_PRESS, 0, on_press, &taken);
  key->keyname = "Return";
  ecore_event_add(ECORE_EVENT_KEY_DOWN, key, NULL, NULL);
  ecore_main_loop_iterate();
  lumio_kevent_fini(kevent);

  ecore_event_shutdown();
  ecore_shutdown();
  puts(taken ? "the handler took the key" : "the handler did not take the key");
  return !taken;
}
