// Notes in the journal what is hooked into the Ecore main loop: "handler add TYPE", "handler del", "enterer add",
// "enterer del". The calls reach Ecore, if it is to be there.
#pragma once

#include <Ecore.h>

#include <vector>

#include "journal.h"

struct FakeEcore {
  struct Handler {
    int type;
    Ecore_Event_Handler_Cb callback;
    const void *data;
  };
  std::vector<Handler> handlers; // all that were added, also those that are deleted by now
  bool absent = false;           // takes nothing, as before ecore_init()
};

extern FakeEcore fake_ecore;
