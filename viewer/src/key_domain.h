// The key handlers of one module. The library's domain is open as long as the object exists, and each answer is
// reported to the key journal.
#pragma once

#include <kevent.h>

#include <functional>
#include <list>
#include <string>

#include "key_journal.h"

class KeyDomain {
public:
  // Receives the symbol of the key (see key_name.h) and returns whether the module takes the key.
  using Handler = std::function<bool(const std::string &key)>;

  KeyDomain(const char *module, KeyJournal &journal);
  ~KeyDomain();
  KeyDomain(const KeyDomain &) = delete;
  KeyDomain &operator=(const KeyDomain &) = delete;

  // The library asks handlers of priority 0 first and those of priority 6 last.
  void OnPress(int priority, Handler handler) { Add(LUMIO_KEVENT_PRESS, priority, std::move(handler)); }
  void OnRelease(int priority, Handler handler) { Add(LUMIO_KEVENT_RELEASE, priority, std::move(handler)); }
  // Deletes the handlers of this priority. A handler of another priority may call it.
  void Withdraw(int priority);

private:
  struct Registration {
    KeyDomain *domain;
    int priority;
    Handler handler;
    lumio_kevent_handler *handle;
  };

  void Add(lumio_kevent_type type, int priority, Handler handler);
  static int Ask(lumio_kevent *kevent, lumio_kevent_type type, void *event_info, void *data);

  std::string module_;
  KeyJournal &journal_;
  lumio_kevent *kevent_;
  std::list<Registration> registrations_; // a list, since the library keeps the addresses
};
