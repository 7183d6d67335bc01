// A module that knows whether the red recording light is to be on.
#pragma once

#include <PvrServiceSubscriber.h>

#include <atomic>

class RecordingLight {
public:
  RecordingLight() : m_subscriber("recording-light") {
    m_registered = m_subscriber.RegisterPvrStateCb(OnState, this) == 0;
  }

  ~RecordingLight() {
    if (m_registered) {
      m_subscriber.UnRegisterPvrStateCb(OnState);
    }
  }

  RecordingLight(const RecordingLight &) = delete;
  RecordingLight &operator=(const RecordingLight &) = delete;

  bool On() const { return m_on; }

private:
  // Runs on a thread of the service, with the library's lock held: remember, and return.
  static bool OnState(pvr_state_e state, void *data) {
    static_cast<RecordingLight *>(data)->m_on = state == PVR_STATE_RECORDING;
    return true;
  }

  CPvrServiceSubscriber m_subscriber;
  bool m_registered;
  std::atomic<bool> m_on{false};
};
