// A module that knows whether the red recording light must be on.
#pragma once

#include <PvrServiceSubscriber.h>

#include <atomic>

class RecordingLight {
public:
  RecordingLight() : subscriber_("recording-light") {
    registered_ = subscriber_.RegisterPvrStateCb(OnState, this) == 0;
  }

  ~RecordingLight() {
    if (registered_) {
      subscriber_.UnRegisterPvrStateCb(OnState);
    }
  }

  RecordingLight(const RecordingLight &) = delete;
  RecordingLight &operator=(const RecordingLight &) = delete;

  bool On() const { return on_; }

private:
  // Runs on a thread of the service, with the library's lock held. Store the state and return.
  static bool OnState(pvr_state_e state, void *data) {
    static_cast<RecordingLight *>(data)->on_ = state == PVR_STATE_RECORDING;
    return true;
  }

  CPvrServiceSubscriber subscriber_;
  bool registered_;
  std::atomic<bool> on_{false};
};
