// A private X server whose input devices stand in for those of a television, for tests and the demo. The server draws
// into memory and reads no hardware: its keys come from the program that owns it. An application that is started with
// its environment variables cannot tell the difference.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace lumio {

// How an input device is connected to the server.
enum class Plug {
  kAttached, // its keys reach applications through the core keyboard
  kFloating, // applications know the device, but its keys do not reach them
  kUnplugged // applications know the device as disabled and without keys
};

// A keyboard of the private server.
struct InputDevice {
  std::string name;
  Plug plug = Plug::kAttached;
};

// Returns the devices of a television (see device_names.h): the hardware keys and the touch remote are attached, the
// remote control and the panel keys float, and function-osd is unplugged.
std::vector<InputDevice> TelevisionDevices();

// The parts of a private display.
struct DisplayOptions {
  std::vector<InputDevice> devices = TelevisionDevices(); // with different names
  // The X server, as a path or as a name to look up in PATH. If it is empty, the server of Debian's xserver-xorg-core
  // is used, or else "Xorg".
  std::string server = {};
};

// Runs the server from its construction to its destruction. Several may exist at once.
//
// All functions wait until the server has carried out the request, without turning a main loop. They throw
// std::runtime_error with a text for the user if the server fails, for example because it has ended, and
// std::invalid_argument if a device or key does not exist. One thread at a time may use an object.
//
// The server ends at the latest with the thread that constructed the object. Once the constructor has returned, no file
// of the server is left behind, however that thread ends.
class PrivateDisplay {
public:
  // Returns when the server and all its devices are ready.
  explicit PrivateDisplay(const DisplayOptions &options = DisplayOptions());
  ~PrivateDisplay();
  PrivateDisplay(const PrivateDisplay &) = delete;
  PrivateDisplay &operator=(const PrivateDisplay &) = delete;

  // Returns the name to pass to ecore_x_init() or to set as DISPLAY, for example ":3".
  const std::string &Name() const;

  // Returns the environment variables that an application of this display needs: DISPLAY, and XKEYSYMDB, from which
  // Xlib learns the names of the television's own keys. Xlib reads XKEYSYMDB once per process, at the first key.
  std::vector<std::pair<std::string, std::string>> Environment() const;

  // Presses a key and returns when the server has sent it to the applications. `key` is the future
  // Ecore_Event_Key::keyname, for example "Return" or "XF86RaiseChannel". Does nothing on an unplugged device.
  void Press(const std::string &device, const std::string &key);
  // Releases a key; see Press. A held key does not repeat.
  void Release(const std::string &device, const std::string &key);

  // Changes how a device is connected, if necessary. Applications see it as any hotplugged device.
  void SetPlug(const std::string &device, Plug plug);

  // Returns the id by which applications know the device.
  int DeviceId(const std::string &device) const;

  // Ends the server; for applications this is no different from a crash. Does nothing if the server has ended.
  void Stop();

private:
  struct State;
  std::unique_ptr<State> state_;
};

} // namespace lumio
