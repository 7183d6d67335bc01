// A module that knows whether the main picture has a signal.
#pragma once

#include <TVServiceSubscriber.h>

#include <string>

class SignalWatch {
public:
  // Give each object a different name: objects with the same name share their callbacks and their user data.
  explicit SignalWatch(const std::string &name) : subscriber_(name) {
    subscriber_.SetSignalCallback(OnSignal);
    subscriber_.SubscribeSignal(SIGNAL_TYPE_LOCK, this, PROFILE_MAIN, 0);
  }

  ~SignalWatch() { subscriber_.UnsubscribeSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0); }

  SignalWatch(const SignalWatch &) = delete;
  SignalWatch &operator=(const SignalWatch &) = delete;

  bool Locked() const { return locked_; }

private:
  // Runs on the main loop, so nothing here needs a lock.
  static int OnSignal(ESignalType, TSSignalData signal, void *data) {
    static_cast<SignalWatch *>(data)->locked_ = signal.value == 1;
    return 0;
  }

  CTVServiceSubscriber subscriber_;
  bool locked_ = false;
};
