// A module's key handlers: a domain of the library that lives as long as the module and reports to the key journal.
#pragma once

#include <kevent.h>

#include <deque>
#include <functional>
#include <string>

#include "key_journal.h"

class KeyDomain {
public:
  // Asked with the X name of the key; returns whether the module takes it.
  using Handler = std::function<bool(const std::string &key)>;

  KeyDomain(const char *module, KeyJournal &journal);
  ~KeyDomain();
  KeyDomain(const KeyDomain &) = delete;
  KeyDomain &operator=(const KeyDomain &) = delete;

  // Priority 0 is asked first, 6 last.
  void OnPress(int priority, Handler handler) { Add(LUMIO_KEVENT_PRESS, priority, std::move(handler)); }
  void OnRelease(int priority, Handler handler) { Add(LUMIO_KEVENT_RELEASE, priority, std::move(handler)); }

private:
  struct Registration {
    KeyDomain *domain;
    Handler handler;
    lumio_kevent_handler *handle;
  };

  void Add(lumio_kevent_type type, int priority, Handler handler);
  static int Ask(lumio_kevent *kevent, lumio_kevent_type type, void *event_info, void *data);

  std::string module_;
  KeyJournal &journal_;
  lumio_kevent *kevent_;
  std::deque<Registration> registrations_; // a deque: the library keeps their addresses
};
