#include "window.h"

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 360;
constexpr char kTitle[] = "Live TV";
constexpr double kRetryInterval = 0.1; // seconds

} // namespace

// Calls `Member` for events of this window.
template <class Event, void (Window::*Member)()> Eina_Bool Window::OnEvent(void *data, int, void *event) {
  auto *self = static_cast<Window *>(data);
  if (static_cast<Event *>(event)->win == self->window_) {
    (self->*Member)();
  }
  return ECORE_CALLBACK_PASS_ON;
}

Window::Window(Presentation &screen, std::function<void()> closed)
    : screen_(screen), closed_(std::move(closed)), window_(ecore_x_window_new(0, 0, 0, kWidth, kHeight)),
      shown_handler_(
          ecore_event_handler_add(ECORE_X_EVENT_WINDOW_SHOW, OnEvent<Ecore_X_Event_Window_Show, &Window::Shown>, this)),
      closed_handler_(ecore_event_handler_add(ECORE_X_EVENT_WINDOW_DELETE_REQUEST,
                                              OnEvent<Ecore_X_Event_Window_Delete_Request, &Window::Closed>, this)) {
  ecore_x_icccm_title_set(window_, kTitle);
  ecore_x_netwm_name_set(window_, kTitle);
  ecore_x_icccm_protocol_set(window_, ECORE_X_WM_PROTOCOL_DELETE_REQUEST, EINA_TRUE);
  ecore_x_window_show(window_);
}

Window::~Window() {
  if (retry_) {
    ecore_timer_del(retry_);
  }
  ecore_event_handler_del(shown_handler_);
  ecore_event_handler_del(closed_handler_);
  ecore_x_keyboard_ungrab();
  ecore_x_window_free(window_);
}

// A window can have the focus and the keyboard only while it is on the screen. While another client holds the keyboard,
// such as a menu of the window manager, the window receives keys only when it has the focus.
void Window::Shown() {
  ecore_x_window_focus(window_);
  if (!TakeKeyboard() && !retry_) {
    screen_.Show("viewer", "ready, keys come here while the window has the focus");
    retry_ = ecore_timer_add(kRetryInterval, Retry, this);
  }
}

bool Window::TakeKeyboard() {
  const bool taken = ecore_x_keyboard_grab(window_) == EINA_TRUE;
  if (taken) {
    screen_.Show("viewer", "ready, all keys of this display come here");
  }
  return taken;
}

Eina_Bool Window::Retry(void *data) {
  auto *self = static_cast<Window *>(data);
  if (!self->TakeKeyboard()) {
    return ECORE_CALLBACK_RENEW;
  }
  self->retry_ = nullptr;
  return ECORE_CALLBACK_CANCEL;
}
