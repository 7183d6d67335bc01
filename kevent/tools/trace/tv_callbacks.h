// The modules' callbacks for the TV service's notifications, and the thunks in the library's copies.
#pragma once

#include <TVServiceSubscriber.h>

#include <string>

namespace lumio::trace {

CTVServiceSubscriber::PesCallback ThunkOf(const std::string &module, CTVServiceSubscriber::PesCallback callback);
CTVServiceSubscriber::CaptionCallback ThunkOf(const std::string &module,
                                              CTVServiceSubscriber::CaptionCallback callback);
CTVServiceSubscriber::DsmCallback ThunkOf(const std::string &module, CTVServiceSubscriber::DsmCallback callback);

// While it exists, the object's signal, programme, section and DSM callbacks are thunks, so that the library copies the
// thunks.
class SwappedCallbacks {
public:
  explicit SwappedCallbacks(CTVServiceSubscriber &object);
  ~SwappedCallbacks();
  SwappedCallbacks(const SwappedCallbacks &) = delete;
  SwappedCallbacks &operator=(const SwappedCallbacks &) = delete;

private:
  CTVServiceSubscriber &object_;
  CTVServiceSubscriber::SignalCallback signal_;
  CTVServiceSubscriber::TTSignalCallback tt_signal_;
  CTVServiceSubscriber::ProgramCallback program_;
  CTVServiceSubscriber::SectionCallback section_;
  CTVServiceSubscriber::DsmCallback dsm_;
};

// Returns the service's answer to this thread's last signal subscription since the last call of this function; positive
// if the service agreed or was not asked.
int TakeSignalAnswer();

} // namespace lumio::trace
