// A module that knows whether the main picture has a signal.
#pragma once

#include <TVServiceSubscriber.h>

#include <string>

class SignalWatch {
public:
  // Objects with one name would be one module, with the user data of the latest.
  explicit SignalWatch(const std::string &name) : m_subscriber(name) {
    m_subscriber.SetSignalCallback(OnSignal);
    m_subscriber.SubscribeSignal(SIGNAL_TYPE_LOCK, this, PROFILE_MAIN, 0);
  }

  ~SignalWatch() { m_subscriber.UnsubscribeSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0); }

  SignalWatch(const SignalWatch &) = delete;
  SignalWatch &operator=(const SignalWatch &) = delete;

  bool Locked() const { return m_locked; }

private:
  // Runs on the main loop, so nothing here needs a lock.
  static int OnSignal(ESignalType, TSSignalData signal, void *data) {
    static_cast<SignalWatch *>(data)->m_locked = signal.value == 1;
    return 0;
  }

  CTVServiceSubscriber m_subscriber;
  bool m_locked = false;
};
