#include "key_senders.h"

#include <Ecore_X.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

namespace {

constexpr int kCoreKeyboard = 3; // fixed by the X server

std::string DeviceName(Display *display, int device) {
  int count = 0;
  XIDeviceInfo *devices = XIQueryDevice(display, device, &count);
  std::string name = devices && count > 0 ? devices[0].name : "";
  if (devices) {
    XIFreeDeviceInfo(devices);
  }
  return name;
}

} // namespace

KeySenders::KeySenders() : handler_(ecore_event_handler_add(ECORE_X_EVENT_GENERIC, EventCame, this)) {
  int first_event = 0;
  int first_error = 0;
  if (auto *display = static_cast<Display *>(ecore_x_display_get())) {
    XQueryExtension(display, "XInputExtension", &opcode_, &first_event, &first_error);
  }
}

KeySenders::~KeySenders() {
  if (handler_) {
    ecore_event_handler_del(handler_);
  }
}

// The core keyboard takes on another device just before it passes on that device's first key.
Eina_Bool KeySenders::EventCame(void *data, int, void *event) {
  auto *self = static_cast<KeySenders *>(data);
  const auto *generic = static_cast<const Ecore_X_Event_Generic *>(event);
  if (generic->extension == self->opcode_ && generic->evtype == XI_DeviceChanged && generic->data) {
    const auto *change = static_cast<const XIDeviceChangedEvent *>(generic->data);
    if (change->deviceid == kCoreKeyboard) {
      self->last_ = DeviceName(static_cast<Display *>(ecore_x_display_get()), change->sourceid);
    }
  }
  return ECORE_CALLBACK_PASS_ON;
}
