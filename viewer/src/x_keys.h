// Presses keys of the user's keymap at the X server, as a keyboard does.
#pragma once

#include <vector>

struct XKey {
  unsigned code = 0;  // 0: there is none
  unsigned shift = 0; // code of a key to hold with it; 0: none
};

// Returns the key for the first of these symbols that the present keymap has.
XKey FindKey(const std::vector<const char *> &symbols);

void PressKey(const XKey &key);
void ReleaseKey(const XKey &key);
