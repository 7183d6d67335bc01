#include "x_keys.h"

#include <Ecore_X.h>
#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <cstring>
#include <memory>

namespace {

Display *XDisplay() { return static_cast<Display *>(ecore_x_display_get()); }

// Returns the number of the device that XTEST sends from. It has a keymap of its own.
unsigned XTestKeyboard() {
  int count = 0;
  XIDeviceInfo *devices = XIQueryDevice(XDisplay(), XIAllDevices, &count);
  unsigned found = XkbUseCoreKbd;
  for (int i = 0; devices && i < count; ++i) {
    if (devices[i].use == XISlaveKeyboard && std::strstr(devices[i].name, "XTEST")) {
      found = static_cast<unsigned>(devices[i].deviceid);
    }
  }
  if (devices) {
    XIFreeDeviceInfo(devices);
  }
  return found;
}

struct FreeKeymap {
  void operator()(XkbDescPtr keymap) const { XkbFreeKeyboard(keymap, XkbAllComponentsMask, True); }
};

// The keymap of the XTEST keyboard, in the group that the user has selected.
class Keymap {
public:
  Keymap() : keymap_(XkbGetMap(XDisplay(), XkbAllClientInfoMask, XTestKeyboard())) {
    XkbGetState(XDisplay(), XkbUseCoreKbd, &state_);
  }

  // Returns the key that gives the symbol with these modifiers; 0 if none does.
  unsigned KeyWith(KeySym symbol, unsigned modifiers) const {
    for (int code = keymap_ ? keymap_->min_key_code : 256; code < 256 && code <= keymap_->max_key_code; ++code) {
      unsigned used = 0;
      KeySym found = NoSymbol;
      XkbTranslateKeyCode(keymap_.get(), static_cast<KeyCode>(code), XkbBuildCoreState(modifiers, state_.group), &used,
                          &found);
      if (found == symbol) {
        return static_cast<unsigned>(code);
      }
    }
    return 0;
  }

private:
  std::unique_ptr<XkbDescRec, FreeKeymap> keymap_;
  XkbStateRec state_ = {};
};

void Send(unsigned code, bool down) {
  if (code != 0) {
    XTestFakeKeyEvent(XDisplay(), code, down ? True : False, CurrentTime);
  }
}

} // namespace

XKey FindKey(const std::vector<const char *> &symbols) {
  const Keymap keymap;
  for (const char *name : symbols) {
    const KeySym symbol = XStringToKeysym(name);
    if (symbol == NoSymbol) {
      continue;
    }
    if (const unsigned code = keymap.KeyWith(symbol, 0)) {
      return {code, 0};
    }
    if (const unsigned code = keymap.KeyWith(symbol, ShiftMask)) {
      return {code, keymap.KeyWith(XK_Shift_L, 0)};
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
