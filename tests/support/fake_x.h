// An X server whose input devices a test chooses. There is no server unless a test sets `display`.
//
// The journal notes the requests: "XQueryExtension NAME", "XIQueryVersion MAJOR.MINOR", "XIQueryDevice ID",
// "XISelectEvents window WINDOW device ID mask BYTES", "atom NAME", "focus", "property ATOM of WINDOW: VALUES".
#pragma once

#include <Ecore_X.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

#include <functional>
#include <string>
#include <vector>

#include "journal.h"

struct FakeDevice {
  int id;
  std::string name;
  int use;
  std::vector<int> key_sources = {}; // the sources of its key classes, which precede a class of another type
  bool enabled = true;
};

struct FakeX {
  static constexpr Window kRoot = 77;
  static constexpr Ecore_X_Atom kAtom = 4711;

  Display *display = nullptr; // FakeDisplay() for a server
  bool has_extension = true;
  int opcode = 131;
  Status version_result = Success;
  bool query_fails = false;
  std::function<void()> during_query; // runs inside every XIQueryDevice
  std::vector<FakeDevice> devices;    // in the server's order
  Ecore_X_Window focus = 0;
  int device_lists = 0; // handed out by XIQueryDevice and not yet freed
};

extern FakeX fake_x;

// Returns a display whose default screen has the root window FakeX::kRoot.
Display *FakeDisplay();
