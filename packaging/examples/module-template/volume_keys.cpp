#include "volume_keys.h"

#include <Ecore_Input.h>

#include <string>

// Priority 3: after a menu that may consume the keys, before modules that only watch.
VolumeKeys::VolumeKeys()
    : domain_(lumio_kevent_init("volume")),
      handler_(lumio_kevent_handler_add(domain_, LUMIO_KEVENT_PRESS, 3, OnPress, this)) {}

// Delete the handler first: a domain closed during a dispatch still receives keys, a deleted handler does not.
VolumeKeys::~VolumeKeys() {
  lumio_kevent_handler_del(handler_);
  lumio_kevent_fini(domain_);
}

int VolumeKeys::OnPress(lumio_kevent *, lumio_kevent_type, void *event_info, void *data) {
  auto *self = static_cast<VolumeKeys *>(data);
  const auto *event = static_cast<const Ecore_Event_Key *>(event_info);
  const std::string key = event->keyname ? event->keyname : ""; // some keys have no name
  if (key == "XF86AudioRaiseVolume") {
    ++self->volume_;
    return 0; // consumed: the modules after this one do not see the key
  }
  if (key == "XF86AudioLowerVolume") {
    --self->volume_;
    return 0;
  }
  return 1; // not consumed: the library asks the next module
}
