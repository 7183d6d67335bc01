// A module that pauses while the viewer is not on the screen.
#pragma once

#include <LumioStateSubscriber.h>

#include <atomic>

enum ELUMIO_STATE : int { kLumioStateShown = 1, kLumioStateStandby = 2 };

class PauseOnStandby {
public:
  // A function can be registered once. If a second object is refused, it must not unregister the first one's callback.
  PauseOnStandby() : subscriber_("pause") {
    registered_ = subscriber_.RegisterLumioStateChangeCb(OnStateChanged, this);
  }

  ~PauseOnStandby() {
    if (registered_) {
      subscriber_.UnregisterLumioStateChangeCb(OnStateChanged);
    }
  }

  PauseOnStandby(const PauseOnStandby &) = delete;
  PauseOnStandby &operator=(const PauseOnStandby &) = delete;

  bool Paused() const { return paused_; }

private:
  static void OnStateChanged(ELUMIO_STATE state, void *data) {
    static_cast<PauseOnStandby *>(data)->paused_ = state == kLumioStateStandby;
  }

  CLumioStateSubscriber subscriber_;
  bool registered_;
  std::atomic<bool> paused_{false}; // the application may announce from any thread
};
