#include "loop.h"

#include <Ecore.h>

#include <thread>

void TurnLoop() { ecore_main_loop_iterate(); }

void TurnLoopUntil(const std::function<bool()> &done) {
  // The timer wakes the loop for conditions that no event announces. If `done` never holds, the time limit of the suite
  // ends the test.
  Ecore_Timer *tick = ecore_timer_add(
      0.001, [](void *) -> Eina_Bool { return ECORE_CALLBACK_RENEW; }, nullptr);
  while (!done()) {
    ecore_main_loop_iterate_may_block(1);
  }
  ecore_timer_del(tick);
}

void HandleAll() {
  // An event that comes after all others.
  static bool handled;
  static const int last = [] {
    const int type = ecore_event_type_new();
    const auto handle = [](void *, int, void *) -> Eina_Bool {
      handled = true;
      return ECORE_CALLBACK_DONE;
    };
    ecore_event_handler_add(type, handle, nullptr);
    return type;
  }();
  const auto post_last = [](void *) { ecore_event_add(last, nullptr, nullptr, nullptr); };
  handled = false;
  std::thread([&] { ecore_main_loop_thread_safe_call_async(post_last, nullptr); }).join();
  TurnLoopUntil([] { return handled; });
}
