// A function that shows the volume banner, and a module that counts how often it appeared.
#pragma once

#include <lumio-banner-state.h>

#include <cstdlib>

constexpr int kVolumeBanner = 3; // the application numbers its banners from 0 to 31

inline bool ShowVolumeBanner() { return lumio_set_banner_state(kVolumeBanner, 1) == 0; }

// Create one at a time: deleting a callback deletes all its registrations for the banner.
class BannerCounter {
public:
  BannerCounter() {
    // The library owns this block from now on and frees it when the callback is deleted.
    auto **self = static_cast<BannerCounter **>(std::malloc(sizeof(BannerCounter *)));
    if (self) {
      *self = this;
      lumio_banner_state_cb_add(kVolumeBanner, OnChanged, self);
    }
  }

  ~BannerCounter() { lumio_banner_state_cb_del(kVolumeBanner, OnChanged); }

  BannerCounter(const BannerCounter &) = delete;
  BannerCounter &operator=(const BannerCounter &) = delete;

  int Shown() const { return shown_; }

private:
  static void OnChanged(int banner_id, void *data) {
    int state = 0;
    if (lumio_get_banner_state(banner_id, &state) == 0 && state == 1) {
      ++(*static_cast<BannerCounter **>(data))->shown_;
    }
  }

  int shown_ = 0;
};
