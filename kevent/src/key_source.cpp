#define LUMIO_LOG_FILE "kevent.cpp"
#include "key_source.h"

#include <Ecore_X.h>

#include <cstdlib>
#include <cstring>

#include "key_manager.h"
#include "log.h"

namespace lumio {
namespace {

constexpr int kVirtualCoreKeyboard = 3; // fixed by the X server
constexpr int kEventMaskLength = 3;     // bytes, enough for XI_HierarchyChanged

// Helpers log in the name of the function that they are part of: log filters know these names.
constexpr char kDeviceCallback[] = "_cb_event_generic";
constexpr char kDeviceSearch[] = "get_id_for_known_devices";
constexpr char kDeviceSetup[] = "init_x_input_extension";

// An input device that the library recognises by its name: the first entry whose name is part of the device's own.
struct KnownDevice {
  const char *name;
  int InputDeviceInfo::*id;
  const char *found; // how the log announces it
};

constexpr char kHwKeys[] = "HWKeys";
constexpr char kTouch[] = "Advanced Touch REMOTE";
// Deliberate: the text names the wrong device. A caller sees it when the touch remote's keyboard is found
// (docs/surprises.md).
constexpr char kTouchKeyboardFound[] = "Advanced : HWKeys slave device found";

constexpr KnownDevice kSlaveKeyboards[] = {
    {kHwKeys, &InputDeviceInfo::hwkeys_dev_id, "XISlaveKeyboard : HWKeys slave device found"},
    {kTouch, &InputDeviceInfo::advanced_touch_dev_id, kTouchKeyboardFound},
};
// Deliberate: only a change of the devices teaches "function-osd". A caller sees its keys as those of an unknown device
// if it was plugged in before the first domain opened (docs/surprises.md).
constexpr KnownDevice kPluggedSlaveKeyboards[] = {
    {kHwKeys, &InputDeviceInfo::hwkeys_dev_id, "HWKeys found"},
    {kTouch, &InputDeviceInfo::advanced_touch_dev_id, kTouchKeyboardFound},
    {"function-osd", &InputDeviceInfo::function_osd_dev_id, "function-osd device found"},
};
constexpr KnownDevice kOtherDevices[] = {
    {kTouch, &InputDeviceInfo::floating_touch_dev_id, "Advanced Touch REMOTE found"},
    {"qm27x410 rc device", &InputDeviceInfo::rc_dev_id, "XIFloatingSlave : Remocon device found"},
    {"qm27x410 panel key device", &InputDeviceInfo::panel_key_dev_id, "XIFloatingSlave : PANEL_KEY device found"},
};

// Returns a list of at least one device, which the caller frees, or null.
XIDeviceInfo *_query_device(int device_id, int *count) {
  *count = 0;
  XIDeviceInfo *devices =
      input_device_info.display ? XIQueryDevice(input_device_info.display, device_id, count) : nullptr;
  if (devices && *count < 1) {
    XIFreeDeviceInfo(devices);
    return nullptr;
  }
  return devices;
}

// Deliberate: a part of the name is enough, in upper or lower case. A caller sees a foreign device whose name contains
// a known one taken for that device (docs/surprises.md).
template <size_t N>
void _learn(const char *function, const XIDeviceInfo &device, const KnownDevice (&known_devices)[N]) {
  for (const KnownDevice &known : known_devices) {
    if (strcasestr(device.name, known.name)) {
      input_device_info.*known.id = device.deviceid;
      LUMIO_LOG_FOR(function, kTrace, "%s.. saving device id : %d..", known.found, device.deviceid);
      return;
    }
  }
}

void get_id_for_known_devices() {
  int count = 0;
  XIDeviceInfo *devices = _query_device(XIAllDevices, &count);
  if (!devices) {
    LUMIO_LOG(kError, "There is no queried XI device.");
    return;
  }
  for (int i = 0; i < count; ++i) {
    if (devices[i].use == XISlaveKeyboard) {
      _learn(kDeviceSearch, devices[i], kSlaveKeyboards);
    } else {
      _learn(kDeviceSearch, devices[i], kOtherDevices);
    }
  }
  XIFreeDeviceInfo(devices);
}

// Deliberate: looks at the first device that the server lists, not at the one that was plugged in. The television's
// server lists the one that matters first. On a stock server, which lists a pointer first, a caller sees keys of a new
// device as those of an unknown one (docs/surprises.md).
void _learn_first_device() {
  int count = 0;
  XIDeviceInfo *devices = _query_device(XIAllDevices, &count);
  if (!devices) {
    return;
  }
  if (devices[0].use == XISlaveKeyboard) {
    _learn(kDeviceCallback, devices[0], kPluggedSlaveKeyboards);
  } else {
    _learn(kDeviceCallback, devices[0], kOtherDevices);
  }
  XIFreeDeviceInfo(devices);
}

void _hierarchy_changed(const XIHierarchyEvent *event) {
  for (int i = 0; i < event->num_info; ++i) {
    if (event->info[i].flags & XIDeviceEnabled) {
      _learn_first_device();
    }
  }
}

// Returns the source of the last key class of the "HWKeys" device, or 0 if it has none.
int _hwkeys_source_id() {
  int count = 0;
  int source_id = 0;
  XIDeviceInfo *device = _query_device(input_device_info.hwkeys_dev_id, &count);
  if (!device) {
    return source_id;
  }
  for (int i = 0; i < device->num_classes; ++i) {
    if (device->classes[i]->type == XIKeyClass) {
      source_id = device->classes[i]->sourceid;
    }
  }
  XIFreeDeviceInfo(device);
  return source_id;
}

int _source_type_behind_hwkeys() {
  const int source_id = _hwkeys_source_id();
  if (source_id == input_device_info.rc_dev_id) {
    return LUMIO_EVENT_SOURCE_REMOTE;
  }
  return source_id == input_device_info.panel_key_dev_id ? LUMIO_EVENT_SOURCE_PANEL : LUMIO_EVENT_SOURCE_OTHER;
}

int _source_type(int source_id) {
  if (source_id == input_device_info.advanced_touch_dev_id || source_id == input_device_info.floating_touch_dev_id) {
    return LUMIO_EVENT_SOURCE_TOUCH;
  }
  if (source_id == input_device_info.function_osd_dev_id) {
    return LUMIO_EVENT_SOURCE_FUNCTION_OSD;
  }
  if (source_id == input_device_info.hwkeys_dev_id) {
    return _source_type_behind_hwkeys();
  }
  return LUMIO_EVENT_SOURCE_OTHER;
}

void _device_changed(const XIDeviceChangedEvent *event) {
  if (input_device_info.advanced_touch_dev_id == 0) {
    get_id_for_known_devices();
  }
  if (event->deviceid != input_device_info.virtual_core_keyboard_id) {
    return;
  }
  // Deliberate: "advanceed" is misspelled. A caller sees it in the log at each change of the sending device
  // (docs/surprises.md).
  LUMIO_LOG_FOR(kDeviceCallback, kTrace, "sourceid:%d,advanceed_touch_dev_id:%d,hwkeys_dev_id:%d,", event->sourceid,
                input_device_info.advanced_touch_dev_id, input_device_info.hwkeys_dev_id);
  g_kmgr.source_type = _source_type(event->sourceid);
}

// Marks the extension as absent, so that no generic event is taken for one of its own.
int _x_input_unavailable() {
  input_device_info.xi_opcode = -1;
  return 0;
}

// Selects device-changed and hierarchy-changed events of all devices. The mask is allocated once and kept.
bool _select_device_events() {
  XIEventMask &mask = input_device_info.event_mask;
  if (!mask.mask) {
    mask.mask = static_cast<unsigned char *>(calloc(kEventMaskLength, 1));
  }
  if (!mask.mask) {
    LUMIO_LOG_FOR(kDeviceSetup, kError, "calloc failed");
    return false;
  }
  mask.deviceid = XIAllDevices;
  mask.mask_len = kEventMaskLength;
  XISetMask(mask.mask, XI_DeviceChanged);
  XISetMask(mask.mask, XI_HierarchyChanged);
  XISelectEvents(input_device_info.display, input_device_info.root, &mask, 1);
  return true;
}

} // namespace

int init_x_input_extension() {
  int first_event = 0;
  int first_error = 0;
  int major = 2;
  int minor = 0;
  auto *display = static_cast<Display *>(ecore_x_display_get());
  input_device_info.virtual_core_keyboard_id = kVirtualCoreKeyboard;
  input_device_info.display = display;
  input_device_info.root = display ? DefaultRootWindow(display) : 0;

  if (!display ||
      !XQueryExtension(display, "XInputExtension", &input_device_info.xi_opcode, &first_event, &first_error)) {
    LUMIO_LOG(kTrace, "XInput Extension isn't supported.");
    return _x_input_unavailable();
  }
  // Only BadRequest counts as a failure: Ecore has already agreed on a version, and a healthy server answers a second
  // query with another error.
  if (XIQueryVersion(display, &major, &minor) == BadRequest) {
    LUMIO_LOG(kTrace, "Failed to query XI version.");
    return _x_input_unavailable();
  }
  get_id_for_known_devices();
  return _select_device_events() ? 1 : 0;
}

Eina_Bool _cb_event_generic(void *, int, void *event) {
  const auto *generic = static_cast<const Ecore_X_Event_Generic *>(event);
  if (generic && generic->extension != input_device_info.xi_opcode) {
    LUMIO_LOG(kTrace, "Invalid event !(extension:%d, evtype:%d)", generic->extension, generic->evtype);
    return ECORE_CALLBACK_PASS_ON;
  }
  if (!generic || !generic->data || static_cast<const XIEvent *>(generic->data)->send_event) {
    LUMIO_LOG(kTrace,
              "Generic event data is not available or the event was sent via XSendEvent (and will be ignored) !");
    return ECORE_CALLBACK_PASS_ON;
  }
  if (generic->evtype == XI_DeviceChanged) {
    _device_changed(static_cast<const XIDeviceChangedEvent *>(generic->data));
  } else if (generic->evtype == XI_HierarchyChanged) {
    _hierarchy_changed(static_cast<const XIHierarchyEvent *>(generic->data));
  }
  // Deliberate: any event counts, even one about an unknown device. A caller sees the next press accepted, whatever its
  // age (docs/surprises.md).
  g_kmgr.generic_event_seen = 1;
  return ECORE_CALLBACK_PASS_ON;
}

} // namespace lumio
