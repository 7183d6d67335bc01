// A module that pauses while the viewer is not on the screen.
#pragma once

#include <LumioStateSubscriber.h>

#include <atomic>

enum ELUMIO_STATE : int { kLumioStateShown = 1, kLumioStateStandby = 2 };

class PauseOnStandby {
public:
  // One registration per function: that of a second object is refused, and it must not take back the first one's.
  PauseOnStandby() : m_subscriber("pause") {
    m_registered = m_subscriber.RegisterLumioStateChangeCb(OnStateChanged, this);
  }

  ~PauseOnStandby() {
    if (m_registered) {
      m_subscriber.UnregisterLumioStateChangeCb(OnStateChanged);
    }
  }

  PauseOnStandby(const PauseOnStandby &) = delete;
  PauseOnStandby &operator=(const PauseOnStandby &) = delete;

  bool Paused() const { return m_paused; }

private:
  static void OnStateChanged(ELUMIO_STATE state, void *data) {
    static_cast<PauseOnStandby *>(data)->m_paused = state == kLumioStateStandby;
  }

  CLumioStateSubscriber m_subscriber;
  bool m_registered;
  std::atomic<bool> m_paused{false}; // the application may announce from any thread
};
