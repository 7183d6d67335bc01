// A module that changes the volume with the remote control's keys.
#pragma once

#include <kevent.h>

class VolumeKeys {
public:
  VolumeKeys();
  ~VolumeKeys();
  VolumeKeys(const VolumeKeys &) = delete;
  VolumeKeys &operator=(const VolumeKeys &) = delete;

  int Volume() const { return volume_; }

private:
  static int OnPress(lumio_kevent *kevent, lumio_kevent_type type, void *event_info, void *data);

  lumio_kevent *domain_;
  lumio_kevent_handler *handler_;
  int volume_ = 10;
};
