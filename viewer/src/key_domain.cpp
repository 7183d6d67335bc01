#include "key_domain.h"

#include "key_name.h"

KeyDomain::KeyDomain(const char *module, KeyJournal &journal)
    : module_(module), journal_(journal), kevent_(lumio_kevent_init(module)) {}

KeyDomain::~KeyDomain() {
  // If a domain is closed during a dispatch, the library still calls its handlers. It does not call deleted handlers.
  for (const Registration &registration : registrations_) {
    lumio_kevent_handler_del(registration.handle);
  }
  lumio_kevent_fini(kevent_);
}

void KeyDomain::Withdraw(int priority) {
  registrations_.remove_if([priority](const Registration &registration) {
    if (registration.priority != priority) {
      return false;
    }
    lumio_kevent_handler_del(registration.handle);
    return true;
  });
}

void KeyDomain::Add(lumio_kevent_type type, int priority, Handler handler) {
  Registration &added = registrations_.emplace_back(Registration{this, priority, std::move(handler), nullptr});
  added.handle = lumio_kevent_handler_add(kevent_, type, priority, Ask, &added);
}

int KeyDomain::Ask(lumio_kevent *, lumio_kevent_type, void *event_info, void *data) {
  const auto *registration = static_cast<Registration *>(data);
  const bool taken = registration->handler(KeySymbol(event_info));
  registration->domain->journal_.Answered(registration->domain->module_, taken);
  return taken ? 0 : 1;
}
