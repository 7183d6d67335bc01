/**
 * @file testing.h
 * What a test of a module needs: EFL, an empty store, keys, and the main loop.
 *
 * Link `lumio-kevent-testing`. It works with any test framework. A test looks like this:
 *
 *     int main() {
 *       lumio::testing::Session session;
 *       lumio::testing::EmptyStore store;
 *       VolumeKeys module;
 *       lumio::testing::Press("XF86AudioRaiseVolume");
 *       assert(module.Volume() == 11);
 *     }
 *
 * `lumio-host/tv-control.h` and `lumio-host/pvr-control.h` make the desktop's services report what the module must cope
 * with. The library keeps process-wide state, so a test that leaves handlers or subscriptions behind affects the next
 * one: remove them, or run each test in a process of its own.
 *
 * Call everything here on the thread that constructed the Session: it is the main-loop thread.
 */
#ifndef LUMIO_HOST_TESTING_H
#define LUMIO_HOST_TESTING_H

#include <functional>
#include <memory>
#include <string>

namespace lumio {
/** Helps to test modules on a desktop. */
namespace testing {

/**
 * Initialises EFL without a display and without a desktop session, and keeps it quiet. Construct one in `main`, before
 * the first test, and destroy it after the last one.
 *
 * A program has one Session: the library's handlers in Ecore do not survive the end of EFL.
 */
class Session {
public:
  Session();
  /** Ends the threads of the desktop's services, then EFL, and closes the store. */
  ~Session();
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;
};

/**
 * Gives the test a store without any values but the initial ones, in a temporary directory. Construct it before the
 * module under test, once per test. It sets `LUMIO_VCONF_DIR` for this process and its children.
 */
class EmptyStore {
public:
  /** Throws `std::system_error` if there is no room for the directory. */
  EmptyStore();
  /** Removes the store and restores `LUMIO_VCONF_DIR`. */
  ~EmptyStore();
  EmptyStore(const EmptyStore &) = delete;
  EmptyStore &operator=(const EmptyStore &) = delete;

  /** @return the directory, in which the test may keep files of its own */
  const std::string &Directory() const;

private:
  struct State;
  std::unique_ptr<State> state_;
};

/**
 * Sends the key event that Ecore sends when a key goes down, and turns the main loop: when the function returns, the
 * handlers have run, and the loop has been idle.
 *
 * @param key  the name, for example "Return" or "XF86AudioRaiseVolume"
 */
void Press(const std::string &key);

/** Sends the key event that Ecore sends when a key goes up; see Press. */
void Release(const std::string &key);

/**
 * A private X server with the input devices of a television, and a focused window on it. Use it instead of Press and
 * Release when it matters which device sends a key, or when keys must travel all the way from the X server.
 *
 * It needs Debian's packages xserver-xorg-core and xserver-xorg-video-dummy. All functions throw `std::runtime_error`
 * if the server does not do what it is asked to do, and `std::invalid_argument` if there is no such key or device.
 */
class KeyDisplay {
public:
  /** Starts the server and initialises Ecore_X. Construct it before the first module of the process. */
  KeyDisplay();
  ~KeyDisplay();
  KeyDisplay(const KeyDisplay &) = delete;
  KeyDisplay &operator=(const KeyDisplay &) = delete;

  /**
   * Presses a key on a device and turns the main loop until it has been handled.
   *
   * @param key     the name, for example "Return" or "XF86RaiseChannel"
   * @param device  "HWKeys" or "Advanced Touch REMOTE"
   */
  void Press(const std::string &key, const std::string &device = "HWKeys");

  /** Releases a key; see Press. */
  void Release(const std::string &key, const std::string &device = "HWKeys");

private:
  struct State;
  std::unique_ptr<State> state_;
};

/** Handles everything that is pending on the main loop, idle enterers included, without waiting. */
void TurnLoop();

/**
 * Turns the main loop until `done` returns true. It has no time limit; set one in the test runner.
 *
 * @param done  called after each turn, and at least every millisecond
 */
void TurnLoopUntil(const std::function<bool()> &done);

/**
 * Waits until the desktop's services have delivered everything that they were told to report, and until the main loop
 * has handled the notifications that this sent to it.
 */
void WaitForServices();

} // namespace testing
} // namespace lumio

#endif
