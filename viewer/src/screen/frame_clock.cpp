#include "frame_clock.h"

namespace {

constexpr double kFrame = 1. / 30; // seconds

} // namespace

FrameClock::FrameClock() {
  ecore_animator_custom_source_tick_begin_callback_set(Begin, this);
  ecore_animator_custom_source_tick_end_callback_set(End, this);
  ecore_animator_source_set(ECORE_ANIMATOR_SOURCE_CUSTOM);
}

FrameClock::~FrameClock() {
  ecore_animator_custom_source_tick_begin_callback_set(nullptr, nullptr);
  ecore_animator_custom_source_tick_end_callback_set(nullptr, nullptr);
  End(this);
}

void FrameClock::Begin(void *data) {
  auto *self = static_cast<FrameClock *>(data);
  if (!self->timer_) {
    self->timer_ = ecore_timer_add(
        kFrame,
        [](void *) -> Eina_Bool {
          ecore_animator_custom_tick();
          return ECORE_CALLBACK_RENEW;
        },
        nullptr);
  }
}

void FrameClock::End(void *data) {
  auto *self = static_cast<FrameClock *>(data);
  if (self->timer_) {
    ecore_timer_del(self->timer_);
    self->timer_ = nullptr;
  }
}
