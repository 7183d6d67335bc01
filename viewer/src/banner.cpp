#include "banner.h"

#include <lumio-banner-state.h>

namespace {

constexpr double kBriefly = 2; // seconds

} // namespace

void Banner::Show(const std::string &text) {
  StopTimer();
  screen_.Show(item_, text);
  lumio_set_banner_state(id_, 1);
}

void Banner::ShowBriefly(const std::string &text) {
  Show(text);
  timer_ = ecore_timer_add(kBriefly, TimeIsUp, this);
}

void Banner::Hide() {
  StopTimer();
  screen_.Hide(item_);
  lumio_set_banner_state(id_, 0);
}

Eina_Bool Banner::TimeIsUp(void *data) {
  auto *self = static_cast<Banner *>(data);
  self->timer_ = nullptr; // Ecore deletes the timer after this call
  self->Hide();
  return ECORE_CALLBACK_CANCEL;
}

void Banner::StopTimer() {
  if (timer_) {
    ecore_timer_del(timer_);
    timer_ = nullptr;
  }
}
