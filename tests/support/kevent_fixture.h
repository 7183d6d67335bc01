// Sends real key events through the real main loop, to handlers that record their calls.
#pragma once

#include <Ecore.h>
#include <Ecore_Input.h>
#include <gmock/gmock.h>
#include <kevent.h>
#include <lumio-host/testing.h>

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "fake_clock.h"
#include "fake_dlog.h"
#include "fake_ecore.h"
#include "fake_vconf.h"
#include "fake_x.h"

using lumio::testing::TurnLoop;
using lumio::testing::TurnLoopUntil;

// A handler whose result the test chooses. Each call notes its name in the journal.
struct Probe {
  std::string name;
  int result = 1;               // 0 consumes the key
  std::function<void()> action; // runs inside the callback
  lumio_kevent_handler *handle = nullptr;

  // The arguments of the last call.
  lumio_kevent *kevent = nullptr;
  lumio_kevent_type type = -1;
  void *event_info = nullptr;
};

class KeventTest : public testing::Test {
protected:
  static constexpr double kStart = 1000.0;   // the Ecore clock in seconds, until a test sets it
  static constexpr unsigned kPowerOn = 5000; // the X server's clock at the first key, in milliseconds

  void SetUp() override;
  void TearDown() override;

  // Opens a domain. The first call also adds Ecore handlers behind the library's own, which count in `passed_on` the
  // keys that reach them, and clears the journal and the log.
  lumio_kevent *Open(const char *name = "domain");

  // Adds a handler that lasts as long as the test.
  Probe &Add(lumio_kevent *kevent, const char *name, int priority = 3, lumio_kevent_type type = LUMIO_KEVENT_PRESS);

  // Queues a key event.
  static void Post(int ecore_type, const char *keyname = "Return", unsigned milliseconds = kPowerOn);
  // Queues a key event and lets the main loop handle it and go idle.
  static void Press(const char *keyname = "Return", unsigned milliseconds = kPowerOn);
  static void Release(const char *keyname = "Return", unsigned milliseconds = kPowerOn);

  // Sends a press that is handled, and 10 s later one that is dropped for its age.
  static void IgnoreAPress();

  // Calls the library as Ecore does for events of `installed_for`.
  static Eina_Bool CallBack(int installed_for, int type, void *event);

  // Sends an event of the X input extension.
  static Eina_Bool SendGeneric(int extension, int evtype, void *data);

  // Silences the complaints of these parts of EFL.
  static void HushEfl(const std::vector<const char *> &domains);

  // Return what has come since the last call.
  static std::vector<std::string> TakeJournal();
  static std::vector<std::string> TakeLog();

  // Returns an address that nobody can read or write without a crash.
  template <class T> static T *Forbidden() { return static_cast<T *>(ForbiddenPage()); }

  int passed_on = 0;

private:
  static void *ForbiddenPage();

  std::deque<Probe> probes;
  bool observing = false;
};
