// Keys of the user's keymap, pressed at the X server as by a keyboard.
#pragma once

#include <vector>

struct XKey {
  unsigned code = 0;  // 0: there is none
  unsigned shift = 0; // code of a key to hold with it; 0: none
};

// A key with one of these symbols, the first that has one, in the keymap as it is now.
XKey FindKey(const std::vector<const char *> &symbols);

void PressKey(const XKey &key);
void ReleaseKey(const XKey &key);
