// The modules' callbacks of the TV service's notifications, and what stands for them in the library's copies.
#pragma once

#include <TVServiceSubscriber.h>

#include <string>

namespace lumio::trace {

CTVServiceSubscriber::PesCallback ThunkOf(const std::string &module, CTVServiceSubscriber::PesCallback callback);
CTVServiceSubscriber::CaptionCallback ThunkOf(const std::string &module,
                                              CTVServiceSubscriber::CaptionCallback callback);
CTVServiceSubscriber::DsmCallback ThunkOf(const std::string &module, CTVServiceSubscriber::DsmCallback callback);

// While it exists, the object's signal, programme, section and DSM callbacks are thunks: the library makes its copy
// meanwhile.
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

// What the service answered to the last signal subscription of this thread since it was asked last; positive when it
// agreed or was not asked.
int TakeSignalAnswer();

} // namespace lumio::trace
