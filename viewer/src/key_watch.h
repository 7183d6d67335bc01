// Records in the journal when the journey of a key begins and ends. Its Ecore handlers run before and after the
// library's.
#pragma once

#include <Ecore.h>

#include "key_journal.h"
#include "key_senders.h"

// Construct it after the first domain is opened, so that the library's handlers run between the two of each kind.
class KeyWatch {
public:
  KeyWatch(KeyJournal &journal, const KeySenders &senders);
  ~KeyWatch();
  KeyWatch(const KeyWatch &) = delete;
  KeyWatch &operator=(const KeyWatch &) = delete;

private:
  static Eina_Bool Before(void *data, int type, void *event);
  static Eina_Bool Behind(void *data, int type, void *event);
  static Eina_Bool Idle(void *data);

  KeyJournal &journal_;
  const KeySenders &senders_;
  Ecore_Event_Handler *handlers_[4];
  Ecore_Idle_Enterer *idle_;
};
