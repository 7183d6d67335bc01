#include "key_watch.h"

#include <Ecore_Input.h>
#include <kevent.h>

#include "key_name.h"

namespace {

Eina_Bool Before(void *data, int type, void *event) {
  static_cast<KeyJournal *>(data)->Begin(KeyName(event), type == ECORE_EVENT_KEY_DOWN, lumio_event_source_type_get());
  return ECORE_CALLBACK_PASS_ON;
}

// Ecore calls this only for keys that the library has passed on.
Eina_Bool Behind(void *data, int, void *) {
  static_cast<KeyJournal *>(data)->PassedOn();
  return ECORE_CALLBACK_PASS_ON;
}

// The last key before the main loop goes idle has no successor that ends its journey.
Eina_Bool Idle(void *data) {
  static_cast<KeyJournal *>(data)->End();
  return ECORE_CALLBACK_RENEW;
}

} // namespace

KeyWatch::KeyWatch(KeyJournal &journal)
    : handlers_{ecore_event_handler_prepend(ECORE_EVENT_KEY_DOWN, Before, &journal),
                ecore_event_handler_prepend(ECORE_EVENT_KEY_UP, Before, &journal),
                ecore_event_handler_add(ECORE_EVENT_KEY_DOWN, Behind, &journal),
                ecore_event_handler_add(ECORE_EVENT_KEY_UP, Behind, &journal)},
      idle_(ecore_idle_enterer_add(Idle, &journal)) {}

KeyWatch::~KeyWatch() {
  for (Ecore_Event_Handler *handler : handlers_) {
    ecore_event_handler_del(handler);
  }
  ecore_idle_enterer_del(idle_);
}
