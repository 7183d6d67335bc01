#include "x_control.h"

#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/keysym.h>

#include <memory>
#include <stdexcept>

namespace lumio {

namespace {

constexpr int kCoreKeyboard = 3; // fixed by the X server

struct CloseDisplay {
  void operator()(Display *display) const { XCloseDisplay(display); }
};
using Connection = std::unique_ptr<Display, CloseDisplay>;

struct FreeKeyboard {
  void operator()(XkbDescPtr keyboard) const { XkbFreeKeyboard(keyboard, XkbAllComponentsMask, True); }
};
using Keyboard = std::unique_ptr<XkbDescRec, FreeKeyboard>;

struct TelevisionKey {
  const char *name;
  KeySym symbol;
};

// Keys that a desktop keyboard lacks. Only a television's server has names for the first two.
constexpr TelevisionKey kTelevisionKeys[] = {
    {"XF86RaiseChannel", 0x10090001}, {"XF86LowerChannel", 0x10090002}, {"XF86ChannelUp", 0x10081192},
    {"XF86ChannelDown", 0x10081193},  {"XF86Red", 0x1008ffa3},          {"XF86Green", 0x1008ffa4},
    {"XF86Yellow", 0x1008ffa5},       {"XF86Blue", 0x1008ffa6},         {"XF86Info", 0x10081166},
    {"XF86Subtitle", 0x1008ff9a},     {"XF86Option", 0x1008ff6c},
};

Connection Connect(const std::string &display_name) {
  Connection display(XOpenDisplay(display_name.c_str()));
  int major = 2;
  int minor = 0;
  if (!display || XIQueryVersion(display.get(), &major, &minor) != Success) {
    throw std::runtime_error("The X server " + display_name + " does not answer");
  }
  return display;
}

Keyboard GetKeyboard(Display *display, int device_id) {
  Keyboard keyboard(XkbGetMap(display, XkbAllMapComponentsMask, static_cast<unsigned>(device_id)));
  if (!keyboard) {
    throw std::runtime_error("The X server has no keymap for input device " + std::to_string(device_id));
  }
  return keyboard;
}

KeySym Symbol(XkbDescPtr keyboard, int code) {
  return XkbKeyNumSyms(keyboard, code) > 0 ? XkbKeySymEntry(keyboard, code, 0, 0) : NoSymbol;
}

// Makes the symbol the only one of the key. Throws std::bad_alloc.
void SetSymbol(XkbDescPtr keyboard, int code, KeySym symbol) {
  int one_level = XkbOneLevelIndex;
  if (XkbChangeTypesOfKey(keyboard, code, 1, XkbGroup1Mask, &one_level, nullptr) != Success) {
    throw std::bad_alloc();
  }
  XkbKeySymEntry(keyboard, code, 0, 0) = symbol;
}

// Assigns the television's keys to unused key codes, from the highest down.
void AddTelevisionKeys(Display *display, XkbDescPtr keyboard) {
  int code = keyboard->max_key_code;
  for (const TelevisionKey &key : kTelevisionKeys) {
    while (Symbol(keyboard, code) != NoSymbol) {
      --code;
    }
    SetSymbol(keyboard, code, key.symbol);
  }
  XkbMapChangesRec changes = {};
  changes.changed = XkbKeySymsMask;
  changes.first_key_sym = static_cast<KeyCode>(code);
  changes.num_key_syms = static_cast<unsigned char>(keyboard->max_key_code - code + 1);
  XkbChangeMap(display, keyboard, &changes);
}

// Returns the name by which an application knows the symbol, or null. Does not ask Xlib for the television's own names:
// Xlib would read XKEYSYMDB now, once for the whole process, and the owner may still set it.
const char *Name(KeySym symbol) {
  for (const TelevisionKey &key : kTelevisionKeys) {
    if (key.symbol == symbol) {
      return key.name;
    }
  }
  return symbol == NoSymbol ? nullptr : XKeysymToString(symbol);
}

std::map<std::string, int> KeyCodes(XkbDescPtr keyboard) {
  std::map<std::string, int> codes;
  for (int code = keyboard->max_key_code; code >= keyboard->min_key_code; --code) {
    if (const char *name = Name(Symbol(keyboard, code))) {
      codes[name] = code;
    }
  }
  return codes;
}

void SetEnabled(Display *display, int device_id, bool enabled) {
  unsigned char value = enabled ? 1 : 0;
  XIChangeProperty(display, device_id, XInternAtom(display, "Device Enabled", False), XA_INTEGER, 8, XIPropModeReplace,
                   &value, 1);
}

int Use(Display *display, int device_id) {
  int count = 0;
  XIDeviceInfo *device = XIQueryDevice(display, device_id, &count);
  const int use = device ? device->use : 0;
  XIFreeDeviceInfo(device);
  return use;
}

void SetAttached(Display *display, int device_id, bool attached) {
  XIAnyHierarchyChangeInfo change = {};
  if (attached) {
    change.attach = {XIAttachSlave, device_id, kCoreKeyboard};
  } else {
    change.detach = {XIDetachSlave, device_id};
  }
  if (Use(display, device_id) != (attached ? XISlaveKeyboard : XIFloatingSlave)) {
    XIChangeHierarchy(display, &change, 1);
  }
}

} // namespace

std::map<std::string, int> QueryDevices(const std::string &display_name) {
  const Connection display = Connect(display_name);
  int count = 0;
  XIDeviceInfo *devices = XIQueryDevice(display.get(), XIAllDevices, &count);
  std::map<std::string, int> ids;
  for (int i = 0; i < count; ++i) {
    ids.emplace(devices[i].name, devices[i].deviceid);
  }
  XIFreeDeviceInfo(devices);
  return ids;
}

std::map<std::string, int> SetKeymap(const std::string &display_name, int device_id) {
  const Connection display = Connect(display_name);
  const Keyboard keyboard = GetKeyboard(display.get(), device_id);
  AddTelevisionKeys(display.get(), keyboard.get());
  XSync(display.get(), False);
  return KeyCodes(keyboard.get());
}

void ChangePlug(const std::string &display_name, int device_id, Plug plug) {
  const Connection display = Connect(display_name);
  SetEnabled(display.get(), device_id, plug != Plug::kUnplugged);
  if (plug != Plug::kUnplugged) {
    SetAttached(display.get(), device_id, plug == Plug::kAttached);
  }
  XSync(display.get(), False);
}

} // namespace lumio
