// Notes in the journal what is hooked into the Ecore main loop: "handler add TYPE", "handler del", "enterer add",
// "enterer del". The calls reach Ecore unless a test refuses them. What Ecore allocates for a handler does not count.
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
  std::vector<Handler> handlers; // every handler that was ever added
  bool absent = false;           // refuses everything, as before ecore_init()
  int refuse_nth = 0;            // refuses the nth request from now on, counted from 1, as if memory were short
};

extern FakeEcore fake_ecore;
