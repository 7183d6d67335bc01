// A module that is unloaded and leaves its handler behind.
#include <kevent.h>

namespace {

int OnKey(lumio_kevent *, lumio_kevent_type, void *, void *) { return 1; }

} // namespace

extern "C" void module_start(lumio_kevent *domain);
extern "C" void module_start(lumio_kevent *domain) {
  lumio_kevent_handler_add(domain, LUMIO_KEVENT_PRESS, 5, OnKey, nullptr);
}
