// Announces a viewer state to a module, in C++.
#include <LumioStateSubscriber.h>

#include <iostream>

enum ELUMIO_STATE : int { kStandby, kLive };

int main() {
  CLumioStateSubscriber module("example");
  ELUMIO_STATE seen = kStandby;
  module.RegisterLumioStateChangeCb(
      [](ELUMIO_STATE state, void *seen_state) { *static_cast<ELUMIO_STATE *>(seen_state) = state; }, &seen);
  CLumioStateSubscriber::HandleStateChanged(kLive);
  std::cout << (seen == kLive ? "the module received the state\n" : "the module did not receive the state\n");
  return seen == kLive ? 0 : 1;
}
