#include "key_watch.h"

#include <Ecore_Input.h>
#include <kevent.h>
#include <vconf.h>

#include "key_name.h"

namespace {

// Why the library leaves a key to the handlers behind its own. lumio-keylog uses the same words.
const char *WhyPassedOn(bool press) {
  int aging = 0;
  if (vconf_get_int("db/FactoryApp/Aging", &aging) == 0 && aging == 1) {
    return "passed on: factory aging mode";
  }
  return press ? "dropped: stale" : "dropped: release after an ignored press";
}

} // namespace

KeyWatch::KeyWatch(KeyJournal &journal, const KeySenders &senders)
    : journal_(journal), senders_(senders), handlers_{ecore_event_handler_prepend(ECORE_EVENT_KEY_DOWN, Before, this),
                                                      ecore_event_handler_prepend(ECORE_EVENT_KEY_UP, Before, this),
                                                      ecore_event_handler_add(ECORE_EVENT_KEY_DOWN, Behind, this),
                                                      ecore_event_handler_add(ECORE_EVENT_KEY_UP, Behind, this)},
      idle_(ecore_idle_enterer_add(Idle, this)) {}

KeyWatch::~KeyWatch() {
  for (Ecore_Event_Handler *handler : handlers_) {
    ecore_event_handler_del(handler);
  }
  ecore_idle_enterer_del(idle_);
}

Eina_Bool KeyWatch::Before(void *data, int type, void *event) {
  const auto *self = static_cast<KeyWatch *>(data);
  self->journal_.Begin(KeyName(event), type == ECORE_EVENT_KEY_DOWN, lumio_event_source_type_get(),
                       self->senders_.Last());
  return ECORE_CALLBACK_PASS_ON;
}

// Reached only by keys that the library did not report as done.
Eina_Bool KeyWatch::Behind(void *data, int type, void *) {
  static_cast<KeyWatch *>(data)->journal_.PassedOn(WhyPassedOn(type == ECORE_EVENT_KEY_DOWN));
  return ECORE_CALLBACK_PASS_ON;
}

// The last key of a busy stretch has no successor that would end its journey.
Eina_Bool KeyWatch::Idle(void *data) {
  static_cast<KeyWatch *>(data)->journal_.End();
  return ECORE_CALLBACK_RENEW;
}
