#include "fake_ecore.h"

#include <dlfcn.h>

FakeEcore fake_ecore;

namespace {

// Returns the function that the program would call without this file.
template <class Function> Function *Real(Function *, const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

bool IsRefused() { return (fake_ecore.refuse_nth > 0 && --fake_ecore.refuse_nth == 0) || fake_ecore.absent; }

} // namespace

extern "C" {

Ecore_Event_Handler *ecore_event_handler_add(int type, Ecore_Event_Handler_Cb callback, const void *data) {
  Note("handler add ", std::to_string(type));
  const Uncounted uncounted;
  fake_ecore.handlers.push_back({type, callback, data});
  return IsRefused() ? nullptr : Real(ecore_event_handler_add, "ecore_event_handler_add")(type, callback, data);
}

void *ecore_event_handler_del(Ecore_Event_Handler *handler) {
  Note("handler del");
  return Real(ecore_event_handler_del, "ecore_event_handler_del")(handler);
}

Ecore_Idle_Enterer *ecore_idle_enterer_add(Ecore_Task_Cb callback, const void *data) {
  Note("enterer add");
  const Uncounted uncounted;
  return IsRefused() ? nullptr : Real(ecore_idle_enterer_add, "ecore_idle_enterer_add")(callback, data);
}

void *ecore_idle_enterer_del(Ecore_Idle_Enterer *enterer) {
  Note("enterer del");
  return Real(ecore_idle_enterer_del, "ecore_idle_enterer_del")(enterer);
}

} // extern "C"
