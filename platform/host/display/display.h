/**
 * @file display.h
 * A private X server whose input devices stand in for a television's: for tests and demonstrations.
 *
 * The server draws into memory and reads no hardware; its keys come from the program that owns it. An application that
 * is started with its environment cannot tell the difference.
 */
#ifndef LUMIO_HOST_DISPLAY_H
#define LUMIO_HOST_DISPLAY_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace lumio {

/** How an input device is connected to the server. */
enum class Plug {
  kAttached, /**< its keys reach applications, through the core keyboard */
  kFloating, /**< known to applications, its keys do not reach them */
  kUnplugged /**< known to applications as a disabled device without keys */
};

/** A keyboard of the private server. */
struct InputDevice {
  std::string name;
  Plug plug = Plug::kAttached;
};

/**
 * The devices of a television: the keyboards "HWKeys" and "Advanced Touch REMOTE", the floating "qm27x410 rc device"
 * and "qm27x410 panel key device", and "function-osd", which is not plugged in yet.
 */
std::vector<InputDevice> TelevisionDevices();

/** What a private display is made of. */
struct DisplayOptions {
  std::vector<InputDevice> devices = TelevisionDevices(); /**< of different names */
  /** The X server, with its path or to be found in PATH. Empty: that of Debian's xserver-xorg-core, otherwise "Xorg".
   */
  std::string server = {};
};

/**
 * Runs the server from its construction to its destruction.
 *
 * Any number of them may exist side by side. All functions throw `std::runtime_error` with a text for the user when the
 * server does not do what was asked, because it is gone for example, and `std::invalid_argument` when a device or key
 * does not exist. They wait until the server has done it, without turning any main loop. One thread at a time may use
 * an object.
 *
 * The server ends, at the latest, with the thread that constructed the object. No file of it is left behind, however
 * that thread ends, once the constructor has returned.
 */
class PrivateDisplay {
public:
  /** Returns when the server and all its devices are ready. */
  explicit PrivateDisplay(const DisplayOptions &options = DisplayOptions());
  ~PrivateDisplay();
  PrivateDisplay(const PrivateDisplay &) = delete;
  PrivateDisplay &operator=(const PrivateDisplay &) = delete;

  /** What an application gives to `ecore_x_init` or has as DISPLAY, for example ":3". */
  const std::string &Name() const;

  /**
   * The variables that an application of this display needs in its environment: DISPLAY, and XKEYSYMDB, by which it
   * knows the names of the television's own keys. The latter is read once in a process, with the first key.
   */
  std::vector<std::pair<std::string, std::string>> Environment() const;

  /**
   * Presses a key and returns when the server has sent it to the applications.
   *
   * @param device  name of one of the devices; on one that is not plugged in nothing happens
   * @param key     what `Ecore_Event_Key::keyname` will be, "Return" or "XF86RaiseChannel" for example
   */
  void Press(const std::string &device, const std::string &key);
  /** Releases a key; see Press. Keys do not repeat, however long they are held. */
  void Release(const std::string &device, const std::string &key);

  /** Plugs a device in or out, as far as it is not so already. Applications are told as of any hotplugged device. */
  void SetPlug(const std::string &device, Plug plug);

  /** The id by which applications know the device. */
  int DeviceId(const std::string &device) const;

  /** Ends the server; to its applications that is no different from a crash. Harmless when it has ended. */
  void Stop();

private:
  struct State;
  std::unique_ptr<State> state_;
};

} // namespace lumio

#endif
