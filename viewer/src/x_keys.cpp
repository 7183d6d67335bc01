#include "x_keys.h"

#include <Ecore_X.h>
#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

namespace {

Display *XDisplay() { return static_cast<Display *>(ecore_x_display_get()); }

// The key that gives the symbol now, with these modifiers; 0 if none does.
unsigned KeyWith(KeySym symbol, unsigned modifiers) {
  XkbStateRec state = {};
  XkbGetState(XDisplay(), XkbUseCoreKbd, &state);
  int first = 0;
  int last = 0;
  XDisplayKeycodes(XDisplay(), &first, &last);
  for (int code = first; code <= last; ++code) {
    unsigned used = 0;
    KeySym found = NoSymbol;
    XkbLookupKeySym(XDisplay(), static_cast<KeyCode>(code), XkbBuildCoreState(modifiers, state.group), &used, &found);
    if (found == symbol) {
      return static_cast<unsigned>(code);
    }
  }
  return 0;
}

void Send(unsigned code, bool down) {
  if (code != 0) {
    XTestFakeKeyEvent(XDisplay(), code, down ? True : False, CurrentTime);
  }
}

} // namespace

XKey FindKey(const std::vector<const char *> &symbols) {
  for (const char *name : symbols) {
    const KeySym symbol = XStringToKeysym(name);
    if (symbol == NoSymbol) {
      continue;
    }
    if (const unsigned code = KeyWith(symbol, 0)) {
      return {code, 0};
    }
    if (const unsigned code = KeyWith(symbol, ShiftMask)) {
      return {code, KeyWith(XK_Shift_L, 0)};
    }
  }
  return {};
}

void PressKey(const XKey &key) {
  Send(key.shift, true);
  Send(key.code, true);
  XFlush(XDisplay());
}

void ReleaseKey(const XKey &key) {
  Send(key.code, false);
  Send(key.shift, false);
  XFlush(XDisplay());
}
