// Tells the journal where each key's journey begins and ends, by plain Ecore handlers around the library's own.
#pragma once

#include <Ecore.h>

#include "key_journal.h"

// To be made after the first domain was opened, so that the library's handlers stand between the two of each kind.
class KeyWatch {
public:
  explicit KeyWatch(KeyJournal &journal);
  ~KeyWatch();
  KeyWatch(const KeyWatch &) = delete;
  KeyWatch &operator=(const KeyWatch &) = delete;

private:
  Ecore_Event_Handler *handlers_[4];
  Ecore_Idle_Enterer *idle_;
};
