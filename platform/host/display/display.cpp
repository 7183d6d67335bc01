#include "display.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <map>
#include <stdexcept>
#include <system_error>

#include "device_names.h"
#include "file_descriptor.h"
#include "injector.h"
#include "server_process.h"
#include "temporary_directory.h"
#include "x_control.h"

namespace lumio {

namespace {

std::string SocketPath(const TemporaryDirectory &directory, size_t index) {
  return directory / ("device" + std::to_string(index));
}

std::string InputSection(const std::string &name, const std::string &type, const std::string &options) {
  return "Section \"InputDevice\"\n"
         "  Identifier \"" +
         name +
         "\"\n"
         "  Driver \"inputtest\"\n"
         "  Option \"DeviceType\" \"" +
         type + "\"\n" + options + "EndSection\n";
}

std::string KeyboardSection(const InputDevice &device, const std::string &socket_path) {
  return InputSection(device.name, "Keyboard",
                      "  Option \"SocketPath\" \"" + socket_path +
                          "\"\n"
                          "  Option \"xkb_rules\" \"evdev\"\n"
                          "  Option \"Floating\" \"" +
                          (device.plug == Plug::kFloating ? "true" : "false") + "\"\n");
}

// Configures a screen in memory and no hardware.
void WriteConfiguration(const TemporaryDirectory &directory, const std::vector<InputDevice> &devices) {
  std::ofstream file(directory / "xorg.conf");
  std::string layout;
  for (size_t i = 0; i < devices.size(); ++i) {
    file << KeyboardSection(devices[i], SocketPath(directory, i));
    layout += "  InputDevice \"" + devices[i].name + "\"\n";
  }
  file << InputSection("pointer", "Pointer", "  Option \"SocketPath\" \"" + (directory / "pointer") + "\"\n")
       << "Section \"Device\"\n"
          "  Identifier \"memory\"\n"
          "  Driver \"dummy\"\n"
          "EndSection\n"
          "Section \"ServerFlags\"\n"
          "  Option \"AutoAddDevices\" \"false\"\n"
          "  Option \"AutoAddGPU\" \"false\"\n"
          "EndSection\n"
          "Section \"ServerLayout\"\n"
          "  Identifier \"television\"\n"
          "  InputDevice \"pointer\" \"CorePointer\"\n"
       << layout << "EndSection\n";
  if (!file.flush()) {
    throw std::runtime_error("Cannot write " + (directory / "xorg.conf"));
  }
}

template <class Value> Value &Find(std::map<std::string, Value> &map, const std::string &name, const char *what) {
  const auto found = map.find(name);
  if (found == map.end()) {
    throw std::invalid_argument("The private display has no " + std::string(what) + " \"" + name + "\"");
  }
  return found->second;
}

// The names of keys that a television's X server has and a desktop's Xlib lacks, in the form of XKEYSYMDB. The codes
// are those of x_control.cpp.
constexpr char kKeysyms[] = "XF86RaiseChannel :10090001\nXF86LowerChannel :10090002\n";

// Returns a file in memory that holds the names.
FileDescriptor WriteKeysyms() {
  FileDescriptor file(memfd_create("keysyms", MFD_CLOEXEC));
  if (write(file.Get(), kKeysyms, sizeof kKeysyms - 1) != sizeof kKeysyms - 1) {
    throw std::system_error(errno, std::generic_category(), "Cannot write a file in memory");
  }
  return file;
}

struct Device {
  int id;
  Injector injector;
};

} // namespace

struct PrivateDisplay::State {
  explicit State(const DisplayOptions &options);
  void FindDevices(const std::vector<InputDevice> &wanted, const TemporaryDirectory &directory);
  void Key(const std::string &device, const std::string &key, bool is_press);
  void SetPlug(Device &device, Plug plug);

  std::unique_ptr<ServerProcess> server;
  const FileDescriptor keysyms = WriteKeysyms();
  std::map<std::string, Device> devices; // by name
  std::map<std::string, int> key_codes;  // by name
};

// The directory is not needed once the injectors hold the sockets of the devices.
PrivateDisplay::State::State(const DisplayOptions &options) {
  const TemporaryDirectory directory;
  WriteConfiguration(directory, options.devices);
  server = std::make_unique<ServerProcess>(options.server, directory);
  FindDevices(options.devices, directory);
  for (const InputDevice &device : options.devices) {
    SetPlug(devices.at(device.name), device.plug);
  }
}

void PrivateDisplay::State::FindDevices(const std::vector<InputDevice> &wanted, const TemporaryDirectory &directory) {
  std::map<std::string, int> ids = QueryDevices(server->DisplayName());
  for (size_t i = 0; i < wanted.size(); ++i) {
    const int id = Find(ids, wanted[i].name, "input device");
    devices.emplace(wanted[i].name, Device{id, Injector(SocketPath(directory, i))});
    key_codes = SetKeymap(server->DisplayName(), id); // the same for all devices
  }
}

void PrivateDisplay::State::Key(const std::string &device, const std::string &key, bool is_press) {
  const int code = Find(key_codes, key, "key");
  Find(devices, device, "input device").injector.Key(code, is_press);
}

void PrivateDisplay::State::SetPlug(Device &device, Plug plug) {
  if (server->IsStopped()) {
    throw std::runtime_error("The X server " + server->DisplayName() + " has been stopped");
  }
  ChangePlug(server->DisplayName(), device.id, plug);
  if (plug == Plug::kUnplugged) {
    device.injector.Disconnect();
  } else {
    device.injector.Connect();
  }
}

std::vector<InputDevice> TelevisionDevices() {
  return {{device::kHardwareKeys},
          {device::kTouchRemote},
          {device::kRemoteControl, Plug::kFloating},
          {device::kPanelKeys, Plug::kFloating},
          {device::kFunctionOsd, Plug::kUnplugged}};
}

PrivateDisplay::PrivateDisplay(const DisplayOptions &options) : state_(std::make_unique<State>(options)) {}

PrivateDisplay::~PrivateDisplay() = default;

const std::string &PrivateDisplay::Name() const { return state_->server->DisplayName(); }

std::vector<std::pair<std::string, std::string>> PrivateDisplay::Environment() const {
  // Other processes of the user find the file here as long as this object exists.
  const std::string keysyms = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(state_->keysyms.Get());
  return {{"DISPLAY", Name()}, {"XKEYSYMDB", keysyms}};
}

void PrivateDisplay::Press(const std::string &device, const std::string &key) { state_->Key(device, key, true); }

void PrivateDisplay::Release(const std::string &device, const std::string &key) { state_->Key(device, key, false); }

void PrivateDisplay::SetPlug(const std::string &device, Plug plug) {
  state_->SetPlug(Find(state_->devices, device, "input device"), plug);
}

int PrivateDisplay::DeviceId(const std::string &device) const {
  return Find(state_->devices, device, "input device").id;
}

void PrivateDisplay::Stop() { state_->server->Stop(); }

} // namespace lumio
